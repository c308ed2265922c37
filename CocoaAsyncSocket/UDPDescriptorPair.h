// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "CocoaAsyncSocket/SocketAddress.h"
#include "CocoaAsyncSocket/UDPNetwork.h"

namespace velor {

/// The IPv4 and the IPv6 descriptor of one socket, made, bound and closed
/// together. Belongs to the network's queue. When `make` or `bind` fails, both are closed.
class UDPDescriptorPair {
 public:
  using Result = GCDAsyncUdpSocketResult;

  struct Descriptor {
    int family;
    int number = -1;
    unsigned watched = 0;       ///< for the owner: the events that it waits for
    std::uint32_t dropped = 0;  ///< for the owner: the datagrams lost so far

    bool isOpen() const noexcept { return number >= 0; }
  };

  explicit UDPDescriptorPair(UDPNetwork& network) : mNetwork(network) {}

  Descriptor& of(int family) noexcept { return family == AF_INET ? mSocket4 : mSocket6; }
  /// The IPv4 descriptor if it is open, otherwise the IPv6 one.
  Descriptor& first() noexcept { return mSocket4.isOpen() ? mSocket4 : mSocket6; }
  bool isOpen() const noexcept { return mSocket4.isOpen() || mSocket6.isOpen(); }
  /// The local address of `first`; null when none is open.
  std::optional<SocketAddress> local();

  /// Takes effect on descriptors made later.
  void setEnabled(int family, bool enabled) noexcept;
  /// Fails when both protocols are disabled.
  Result checkEnabled() const;

  /// Makes the enabled ones that the system supports; does nothing when one is open.
  Result make();
  /// Makes them and binds them to the port on all interfaces; 0 lets the system choose one
  /// that is free for both.
  Result bind(std::uint16_t port);
  /// Connects the descriptor of the address's family, and closes the other.
  Result connect(const SocketAddress& address);
  /// Makes them. Only IPv4 has broadcast.
  Result setBroadcast(bool enabled);
  void close();

 private:
  Result prepare(Descriptor& descriptor);
  Result bindOnce(std::uint16_t port);
  void close(Descriptor& descriptor);

  UDPNetwork& mNetwork;
  Descriptor mSocket4{AF_INET};
  Descriptor mSocket6{AF_INET6};
  bool mIPv4Enabled = true;
  bool mIPv6Enabled = true;
  bool mBroadcast = false;  // until `close`
};

}  // namespace velor
