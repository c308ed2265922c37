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

/// The system calls under GCDAsyncUdpSocket, and the one thread that waits for
/// all sockets and runs the jobs of all: the queue "GCDAsyncUdpSocket". Nothing
/// on that queue ever waits, so one socket does not hold up another.
///
/// Calls give 0 or more, or less a number of errno. They run on the queue.
/// Implementations: SystemUDPNetwork, SimulatedUDPNetwork.
class UDPNetwork {
 public:
  /// Bytes of a datagram that are read; the rest of a longer one is lost.
  static constexpr std::size_t kLargestDatagram = 9216;
  /// Datagrams read at once.
  static constexpr std::size_t kMostDatagramsAtOnce = 64;

  /// What the system says of a host.
  struct Answer {
    int code = 0;  ///< of getaddrinfo; 0 when there are addresses
    std::vector<SocketAddress> addresses;
  };

  /// Who has descriptors.
  class Client {
   public:
    /// A descriptor that was watched can be read or written, has an error, or
    /// (seldom) none of these. It is not watched any more.
    virtual void descriptorReady(int descriptor) = 0;
    /// What was read and handed on has been taken; more may be read.
    virtual void readOn() = 0;

   protected:
    ~Client() = default;
  };

  virtual ~UDPNetwork();
  UDPNetwork(const UDPNetwork&) = delete;
  UDPNetwork& operator=(const UDPNetwork&) = delete;

  host::Queue& queue() noexcept;

  /// A number under which the queue finds the client until `removeClient`, so
  /// that what is under way for it can come to nothing. On the queue.
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
  /// Adds at most kMostDatagramsAtOnce to the batch and gives how many were read,
  /// empty ones included, which are not added.
  virtual int recvmmsg(int descriptor, DatagramBatch& batch) = 0;
  virtual void close(int descriptor) = 0;

  /// Tells the client once when the descriptor is ready for one of the two;
  /// replaces an earlier watch of it.
  virtual int watch(int descriptor, std::uint32_t client, bool read, bool write) = 0;

 protected:
  /// Belongs to the host in force, and ends before it.
  UDPNetwork();

  /// To be called last in the constructor and first in the destructor: the thread
  /// calls the functions below.
  void startThread();
  /// Ends the program when there is a client left.
  void endThread();

  struct Ready {
    std::uint32_t client;
    int descriptor;
  };

  /// Waits until `wake` has a signal, which it takes, or a watched descriptor is
  /// ready. The thread alone.
  virtual void wait(host::Semaphore& wake, std::vector<Ready>& ready) = 0;

  /// What asks the system for the addresses of a host, as host::LongJobs runs it.
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

/// The network in force; the application chooses it once, a test for each case.
UDPNetwork& udpNetwork() noexcept;
void setUDPNetwork(UDPNetwork* network) noexcept;

}  // namespace velor
