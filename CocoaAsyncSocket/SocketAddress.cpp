// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/SocketAddress.h"

#include <arpa/inet.h>

#include <array>
#include <cstring>

namespace velor {

SocketAddress::SocketAddress(const sockaddr* address, socklen_t size) noexcept {
  if (address->sa_family == AF_INET && size >= sizeof m4) {
    std::memcpy(static_cast<void*>(&m4), address, sizeof m4);
  } else if (address->sa_family == AF_INET6 && size >= sizeof m6) {
    std::memcpy(static_cast<void*>(&m6), address, sizeof m6);
  }
}

SocketAddress SocketAddress::wildcard(int family, std::uint16_t port) noexcept {
  SocketAddress address;
  if (family == AF_INET) {
    address.m4 = {};
    address.m4.sin_family = AF_INET;
    address.m4.sin_port = htons(port);
  } else {
    address.m6.sin6_family = AF_INET6;
    address.m6.sin6_port = htons(port);
  }
  return address;
}

std::optional<SocketAddress> SocketAddress::fromText(const std::string& host,
                                                     std::uint16_t port) noexcept {
  SocketAddress address = wildcard(AF_INET, port);
  if (inet_pton(AF_INET, host.c_str(), &address.m4.sin_addr) == 1) {
    return address;
  }
  address = wildcard(AF_INET6, port);
  if (inet_pton(AF_INET6, host.c_str(), &address.m6.sin6_addr) == 1) {
    return address;
  }
  return std::nullopt;
}

std::uint16_t SocketAddress::port() const noexcept {
  switch (family()) {
    case AF_INET:
      return ntohs(m4.sin_port);
    case AF_INET6:
      return ntohs(m6.sin6_port);
    default:
      return 0;
  }
}

std::string SocketAddress::host() const {
  std::array<char, INET6_ADDRSTRLEN> text{};
  if (family() == AF_INET) {
    inet_ntop(AF_INET, &m4.sin_addr, text.data(), text.size());
  } else if (family() == AF_INET6) {
    inet_ntop(AF_INET6, &m6.sin6_addr, text.data(), text.size());
  }
  return text.data();
}

socklen_t SocketAddress::size() const noexcept {
  switch (family()) {
    case AF_INET:
      return sizeof m4;
    case AF_INET6:
      return sizeof m6;
    default:
      return 0;
  }
}

bool operator==(const SocketAddress& a, const SocketAddress& b) noexcept {
  if (a.family() != b.family() || a.port() != b.port()) {
    return false;
  }
  if (a.family() == AF_INET) {
    return a.m4.sin_addr.s_addr == b.m4.sin_addr.s_addr;
  }
  return std::memcmp(&a.m6.sin6_addr, &b.m6.sin6_addr, sizeof a.m6.sin6_addr) == 0 &&
         a.m6.sin6_scope_id == b.m6.sin6_scope_id;
}

}  // namespace velor
