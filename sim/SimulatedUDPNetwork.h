// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CocoaAsyncSocket/UDPNetwork.h"

namespace velor {

/// A network inside the process, on the simulated host. Datagrams between its
/// sockets arrive at once and in order; other machines are played by its owner.
/// Loopback addresses and the wildcards are this machine's own. Where it matters
/// to a program it behaves as Linux does: ports in use, refused datagrams, full
/// buffers, broadcast.
class SimulatedUDPNetwork final : public UDPNetwork {
 public:
  /// The kernel's usual room for what was not read yet, and what it charges for
  /// the keeping of each datagram; bytes.
  static constexpr std::size_t kReceiveBuffer = 212'992;
  static constexpr std::size_t kDatagramOverhead = 512;

  struct Datagram {
    SocketAddress from;
    SocketAddress to;
    std::vector<std::uint8_t> data;
  };

  enum class Call { socket, setNonBlocking, setsockopt, bind, connect, send, recvmmsg, watch };

  SimulatedUDPNetwork();
  ~SimulatedUDPNetwork() override;

  // --- for the one who plays the rest of the world

  /// Gives a name its addresses; "localhost" has ::1 and 127.0.0.1 already. The
  /// answer takes `delay` ns. Names without addresses are not known.
  void addHost(const std::string& name, std::vector<SocketAddress> addresses,
               std::uint64_t delay = 0);
  /// A datagram from anywhere reaches this machine; false when no socket takes it.
  bool arrive(const SocketAddress& from, const SocketAddress& to,
              std::span<const std::uint8_t> data);
  /// The datagrams sent to other machines since the last call, in order.
  std::vector<Datagram> takeSent();
  /// Has the call after the next `after` ones of its kind fail with this errno.
  void failNext(Call call, int errorNumber, unsigned after = 0);
  /// While held, no socket has room to send.
  void holdSends(bool held);
  std::size_t openDescriptors() const { return mSockets.size(); }

  int socket(int family) override;
  int setNonBlocking(int descriptor) override;
  int setsockopt(int descriptor, int level, int option, int value) override;
  int bind(int descriptor, const SocketAddress& address) override;
  int connect(int descriptor, const SocketAddress& address) override;
  int getsockname(int descriptor, SocketAddress& address) override;
  int send(int descriptor, std::span<const std::uint8_t> data) override;
  int recvmmsg(int descriptor, DatagramBatch& batch) override;
  void close(int descriptor) override;
  int watch(int descriptor, std::uint32_t client, bool read, bool write) override;

 private:
  struct Socket {
    SocketAddress local;
    SocketAddress peer;  // of no family: none
    bool broadcast = false;
    int pendingError = 0;
    std::deque<Datagram> unread;
    std::size_t unreadBytes = 0;
    std::uint32_t dropped = 0;
    std::uint32_t client = 0;
    bool watchRead = false;
    bool watchWrite = false;
  };
  struct Name {
    std::vector<SocketAddress> addresses;
    std::uint64_t delay;
  };
  struct Fault {
    int errorNumber;
    unsigned after;
  };

  void wait(host::Semaphore& wake, std::vector<Ready>& ready) override;
  LookUp lookUp(const std::string& host, std::uint16_t port) override;

  int faultOf(Call call);
  bool portInUse(const SocketAddress& address) const;
  SocketAddress freePort(SocketAddress address);
  void wakeThread();

  // Shared by all threads: one of them runs at a time, until it waits.
  std::map<int, Socket> mSockets;
  std::map<std::string, Name> mNames;
  std::vector<Datagram> mSent;
  std::map<Call, Fault> mFaults;
  bool mSendsHeld = false;
  int mLastDescriptor = 1'000'000;  // none of the system's
  std::uint16_t mLastPort = 49'151;
};

}  // namespace velor
