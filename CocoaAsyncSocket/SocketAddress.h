// SPDX-License-Identifier: MIT
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

namespace velor {

/// The raw address of a socket, IPv4 or IPv6 with a port: a plain value of 28 bytes, small
/// enough to be captured in a task.
class SocketAddress {
 public:
  /// Has no family.
  SocketAddress() noexcept = default;
  /// Gives an address of no family for other families than AF_INET and AF_INET6, and for a
  /// size that is too short.
  SocketAddress(const sockaddr* address, socklen_t size) noexcept;

  /// All interfaces of the family.
  static SocketAddress wildcard(int family, std::uint16_t port) noexcept;
  /// Dotted IPv4, or IPv6 with colons and no scope; null for any other text.
  static std::optional<SocketAddress> fromText(const std::string& host,
                                               std::uint16_t port) noexcept;

  /// AF_INET, AF_INET6, or AF_UNSPEC.
  int family() const noexcept { return mAny.sa_family; }
  std::uint16_t port() const noexcept;
  /// The text of inet_ntop, which has no scope; empty for no family.
  std::string host() const;

  const sockaddr* data() const noexcept { return &mAny; }
  /// Bytes of `data`; 0 for no family.
  socklen_t size() const noexcept;

  friend bool operator==(const SocketAddress& a, const SocketAddress& b) noexcept;

 private:
  union {
    sockaddr mAny;
    sockaddr_in m4;
    sockaddr_in6 m6{};
  };
};

}  // namespace velor
