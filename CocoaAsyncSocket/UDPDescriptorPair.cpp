// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/UDPDescriptorPair.h"

#include <cerrno>
#include <utility>

namespace velor {

namespace {

using Error = GCDAsyncUdpSocketError;

// Attempts to get a port from the system that is free for both protocols.
constexpr int kMostPortsTried = 16;

}  // namespace

std::optional<SocketAddress> UDPDescriptorPair::local() {
  SocketAddress address;
  if (isOpen() && mNetwork.getsockname(first().number, address) >= 0) {
    return address;
  }
  return std::nullopt;
}

void UDPDescriptorPair::setEnabled(int family, bool enabled) noexcept {
  (family == AF_INET ? mIPv4Enabled : mIPv6Enabled) = enabled;
}

UDPDescriptorPair::Result UDPDescriptorPair::checkEnabled() const {
  if (!mIPv4Enabled && !mIPv6Enabled) {
    return failure(Error::badConfig(
        "Both IPv4 and IPv6 have been disabled. Must enable at least one protocol first."));
  }
  return {};
}

UDPDescriptorPair::Result UDPDescriptorPair::make() {
  if (isOpen()) {
    return {};
  }
  Result missing;
  for (auto& [descriptor, enabled] :
       {std::pair(&mSocket4, mIPv4Enabled), std::pair(&mSocket6, mIPv6Enabled)}) {
    Result made = enabled ? prepare(*descriptor) : Result();
    if (!made && made.error().code == EAFNOSUPPORT) {
      missing = std::move(made);  // as one that is disabled
    } else if (!made) {
      close();
      return made;
    }
  }
  return isOpen() ? Result() : missing;
}

UDPDescriptorPair::Result UDPDescriptorPair::prepare(Descriptor& descriptor) {
  const int number = mNetwork.socket(descriptor.family);
  if (number < 0) {
    return failure(Error::posix(-number, "Error in socket() function"));
  }
  descriptor = {descriptor.family, number};
  if (const int result = mNetwork.setNonBlocking(number); result < 0) {
    return failure(Error::posix(-result, "Error enabling non-blocking IO on socket (fcntl)"));
  }
  int result = 0;
  if (descriptor.family == AF_INET6) {
    // The IPv4 descriptor receives IPv4 at the same port.
    result = mNetwork.setsockopt(number, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  } else if (mBroadcast) {
    result = mNetwork.setsockopt(number, SOL_SOCKET, SO_BROADCAST, 1);
  }
  if (result < 0) {
    return failure(Error::posix(-result, "Error in setsockopt() function"));
  }
  // The count of dropped datagrams is only for the log, so a failure does not matter.
  mNetwork.setsockopt(number, SOL_SOCKET, SO_RXQ_OVFL, 1);
  return {};
}

UDPDescriptorPair::Result UDPDescriptorPair::bind(std::uint16_t port) {
  const bool broadcast = mBroadcast;
  for (int tried = 0;; ++tried) {
    mBroadcast = broadcast;
    Result bound = make().and_then([this, port] { return bindOnce(port); });
    if (bound) {
      return bound;
    }
    close();
    if (port != 0 || bound.error().code != EADDRINUSE || tried == kMostPortsTried) {
      return bound;
    }
  }
}

UDPDescriptorPair::Result UDPDescriptorPair::bindOnce(std::uint16_t port) {
  // Without SO_REUSEADDR: of two sockets that allow reuse, whenever it is set, Linux lets the
  // later one take the port, and all datagrams, of the earlier one.
  for (Descriptor* const descriptor : {&mSocket4, &mSocket6}) {
    if (!descriptor->isOpen()) {
      continue;
    }
    const auto address = SocketAddress::wildcard(descriptor->family, port);
    if (const int result = mNetwork.bind(descriptor->number, address); result < 0) {
      return failure(Error::posix(-result, "Error in bind() function"));
    }
    SocketAddress bound;
    if (mNetwork.getsockname(descriptor->number, bound) >= 0) {
      port = bound.port();  // if the system chose it, IPv6 gets the same
    }
  }
  return {};
}

UDPDescriptorPair::Result UDPDescriptorPair::connect(const SocketAddress& address) {
  Descriptor& descriptor = of(address.family());
  int result = mNetwork.connect(descriptor.number, address);
  if (result == -EACCES && descriptor.family == AF_INET && !mBroadcast) {
    // A broadcast address, for which users enable broadcast after the connect has begun.
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 1);
    result = mNetwork.connect(descriptor.number, address);
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 0);
  }
  if (result < 0) {
    return failure(Error::posix(-result, "Error in connect() function"));
  }
  close(of(address.family() == AF_INET ? AF_INET6 : AF_INET));
  return {};
}

UDPDescriptorPair::Result UDPDescriptorPair::setBroadcast(bool enabled) {
  if (Result made = make(); !made) {
    return made;
  }
  if (mSocket4.isOpen()) {
    const int result =
        mNetwork.setsockopt(mSocket4.number, SOL_SOCKET, SO_BROADCAST, enabled ? 1 : 0);
    if (result < 0) {
      return failure(Error::posix(-result, "Error in setsockopt() function"));
    }
  }
  mBroadcast = enabled;
  return {};
}

void UDPDescriptorPair::close() {
  close(mSocket4);
  close(mSocket6);
  mBroadcast = false;
}

void UDPDescriptorPair::close(Descriptor& descriptor) {
  if (descriptor.isOpen()) {
    mNetwork.close(descriptor.number);
    descriptor = {descriptor.family};
  }
}

}  // namespace velor
