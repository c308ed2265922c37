// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "CocoaAsyncSocket/UDPNetwork.h"

namespace velor {

/// The network of this system, by epoll.
class SystemUDPNetwork final : public UDPNetwork {
 public:
  /// The interfaces that a wildcard address binds.
  enum class Reach {
    allInterfaces,
    loopback,  ///< 127.0.0.1 and ::1, which other machines cannot reach
  };
  explicit SystemUDPNetwork(Reach reach = Reach::allInterfaces);
  ~SystemUDPNetwork() override;

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
  struct ReadingRoom;

  void wait(host::Semaphore& wake, std::vector<Ready>& ready) override;
  LookUp lookUp(const std::string& host, std::uint16_t port) override;

  const Reach mReach;
  const int mEpoll;
  int mWakeDescriptor = -1;                   // set once it is in mEpoll
  std::unique_ptr<ReadingRoom> mReadingRoom;  // made for the first reading
};

}  // namespace velor
