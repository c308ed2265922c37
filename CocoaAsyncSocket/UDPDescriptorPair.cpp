// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/UDPDescriptorPair.h"

#include <cerrno>
#include <utility>

namespace velor {

namespace {

using Error = GCDAsyncUdpSocketError;

// Ports of the system's choice that are tried before one is free for both protocols.
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

UDPDescriptorPair::Problem UDPDescriptorPair::checkEnabled() const {
  if (!mIPv4Enabled && !mIPv6Enabled) {
    return Error::badConfig(
        "Both IPv4 and IPv6 have been disabled. Must enable at least one protocol first.");
  }
  return {};
}

UDPDescriptorPair::Problem UDPDescriptorPair::make() {
  if (isOpen()) {
    return {};
  }
  Problem missing;
  for (auto& [descriptor, enabled] :
       {std::pair(&mSocket4, mIPv4Enabled), std::pair(&mSocket6, mIPv6Enabled)}) {
    Problem problem = enabled ? prepare(*descriptor) : Problem();
    if (problem && problem->code == EAFNOSUPPORT) {
      missing = std::move(problem);  // as one that is disabled
    } else if (problem) {
      close();
      return problem;
    }
  }
  return isOpen() ? Problem() : missing;
}

UDPDescriptorPair::Problem UDPDescriptorPair::prepare(Descriptor& descriptor) {
  const int number = mNetwork.socket(descriptor.family);
  if (number < 0) {
    return Error::posix(-number, "Error in socket() function");
  }
  descriptor = {descriptor.family, number};
  if (const int result = mNetwork.setNonBlocking(number); result < 0) {
    return Error::posix(-result, "Error enabling non-blocking IO on socket (fcntl)");
  }
  int result = 0;
  if (descriptor.family == AF_INET6) {
    // The IPv4 descriptor takes what comes by IPv4, at the same port.
    result = mNetwork.setsockopt(number, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  } else if (mBroadcast) {
    result = mNetwork.setsockopt(number, SOL_SOCKET, SO_BROADCAST, 1);
  }
  if (result < 0) {
    return Error::posix(-result, "Error in setsockopt() function");
  }
  // A system that does not count what it drops is no reason to fail.
  mNetwork.setsockopt(number, SOL_SOCKET, SO_RXQ_OVFL, 1);
  return {};
}

UDPDescriptorPair::Problem UDPDescriptorPair::bind(std::uint16_t port) {
  const bool broadcast = mBroadcast;
  for (int tried = 0;; ++tried) {
    mBroadcast = broadcast;
    Problem problem = make();
    if (!problem) {
      problem = bindOnce(port);
    }
    if (!problem) {
      return {};
    }
    close();
    if (port != 0 || problem->code != EADDRINUSE || tried == kMostPortsTried) {
      return problem;
    }
  }
}

UDPDescriptorPair::Problem UDPDescriptorPair::bindOnce(std::uint16_t port) {
  // Without SO_REUSEADDR: of two sockets that allow reuse, whenever it is set, Linux lets the
  // later one take the port, and all datagrams, of the earlier one.
  for (Descriptor* const descriptor : {&mSocket4, &mSocket6}) {
    if (!descriptor->isOpen()) {
      continue;
    }
    const auto address = SocketAddress::wildcard(descriptor->family, port);
    if (const int result = mNetwork.bind(descriptor->number, address); result < 0) {
      return Error::posix(-result, "Error in bind() function");
    }
    SocketAddress bound;
    if (mNetwork.getsockname(descriptor->number, bound) >= 0) {
      port = bound.port();  // which the system may have chosen, for both then
    }
  }
  return {};
}

UDPDescriptorPair::Problem UDPDescriptorPair::connect(const SocketAddress& address) {
  Descriptor& descriptor = of(address.family());
  int result = mNetwork.connect(descriptor.number, address);
  if (result == -EACCES && descriptor.family == AF_INET && !mBroadcast) {
    // A broadcast address. Whether it may be sent to is asked at the send, since
    // broadcast is enabled after the connect has begun.
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 1);
    result = mNetwork.connect(descriptor.number, address);
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 0);
  }
  if (result < 0) {
    return Error::posix(-result, "Error in connect() function");
  }
  close(of(address.family() == AF_INET ? AF_INET6 : AF_INET));
  return {};
}

UDPDescriptorPair::Problem UDPDescriptorPair::setBroadcast(bool enabled) {
  Problem problem = make();
  if (problem) {
    return problem;
  }
  if (mSocket4.isOpen()) {
    const int result =
        mNetwork.setsockopt(mSocket4.number, SOL_SOCKET, SO_BROADCAST, enabled ? 1 : 0);
    if (result < 0) {
      return Error::posix(-result, "Error in setsockopt() function");
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
