// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CocoaAsyncSocket/DatagramBatch.h"
#include "CocoaAsyncSocket/SocketAddress.h"
#include "platform/host/Host.h"
#include "platform/host/LongJobs.h"
#include "platform/host/Queue.h"

namespace velor {

/// The system calls that GCDAsyncUdpSocket uses, and the one thread that waits for all
/// sockets and runs their jobs: the queue "GCDAsyncUdpSocket". No job on that queue blocks,
/// so no socket delays another.
///
/// Calls return 0 or more, or a negative errno. They run on the queue.
/// Implementations: SystemUDPNetwork, SimulatedUDPNetwork.
class UDPNetwork {
 public:
  /// Bytes read of a datagram; the rest of a longer one is lost.
  static constexpr std::size_t kLargestDatagram = 9216;
  /// Datagrams read at once.
  static constexpr std::size_t kMostDatagramsAtOnce = 64;

  /// The result of a look-up.
  struct Answer {
    int code = 0;  ///< of getaddrinfo; 0 when there are addresses
    std::vector<SocketAddress> addresses;
  };

  /// An owner of descriptors.
  class Client {
   public:
    /// A watched descriptor can be read or written, has an error, or (rarely) none of these.
    /// This ends its watch.
    virtual void descriptorReady(int descriptor) = 0;
    /// The delegate has taken a reading, so there is room for the next.
    virtual void readOn() = 0;

   protected:
    ~Client() = default;
  };

  virtual ~UDPNetwork();
  UDPNetwork(const UDPNetwork&) = delete;
  UDPNetwork& operator=(const UDPNetwork&) = delete;

  host::Queue& queue() noexcept;

  /// Returns an id by which later jobs find the client, or find that it has been removed. On
  /// the queue.
  std::uint32_t addClient(Client& client);
  void removeClient(std::uint32_t id);
  /// On the queue; null when it has been removed.
  Client* client(std::uint32_t id) const;

  /// Looks the host up in the background and answers on the queue. On the queue.
  void resolve(const std::string& host, std::uint16_t port, std::function<void(Answer)> answer);

  // --- descriptors

  virtual int socket(int family) = 0;
  virtual int setNonBlocking(int descriptor) = 0;
  virtual int setsockopt(int descriptor, int level, int option, int value) = 0;
  virtual int bind(int descriptor, const SocketAddress& address) = 0;
  virtual int connect(int descriptor, const SocketAddress& address) = 0;
  virtual int getsockname(int descriptor, SocketAddress& address) = 0;
  virtual int send(int descriptor, std::span<const std::uint8_t> data) = 0;
  /// Adds at most kMostDatagramsAtOnce datagrams to the batch. Returns the number read,
  /// including empty ones, which are not added.
  virtual int recvmmsg(int descriptor, DatagramBatch& batch) = 0;
  virtual void close(int descriptor) = 0;

  /// Reports to the client once when the descriptor is ready for one of the two. Replaces an
  /// earlier watch.
  virtual int watch(int descriptor, std::uint32_t client, bool read, bool write) = 0;

 protected:
  /// Uses the current host, and must end before it.
  UDPNetwork();

  /// For the end of the constructor and the begin of the destructor, since the thread calls
  /// the functions below.
  void startThread();
  /// Stops the program when a client is left.
  void endThread();

  struct Ready {
    std::uint32_t client;
    int descriptor;
  };

  /// Waits until `wake` is signalled, and clears it, or until a watched descriptor is ready.
  /// Only on the thread.
  virtual void wait(host::Semaphore& wake, std::vector<Ready>& ready) = 0;

  /// The job that asks the system for the addresses of a host, for host::LongJobs.
  struct LookUp {
    std::function<Answer()> run;
    std::function<void()> cancel;
  };
  virtual LookUp lookUp(const std::string& host, std::uint16_t port) = 0;

 private:
  class Loop;

  void run();

  host::Host& mHost;
  const std::unique_ptr<Loop> mQueue;
  std::unique_ptr<host::LongJobs> mLookUps;
  std::unique_ptr<host::Thread> mThread;
  std::atomic<bool> mEnding{false};
  std::unordered_map<std::uint32_t, Client*> mClients;  // the queue's
  std::uint32_t mLastClient = 0;                        // the queue's
};

/// The current network; the application chooses it once, a test for each case.
UDPNetwork& udpNetwork() noexcept;
void setUDPNetwork(UDPNetwork* network) noexcept;

}  // namespace velor
