// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "CocoaAsyncSocket/SocketAddress.h"
#include "CocoaAsyncSocket/UDPNetwork.h"

namespace velor {

/// The IPv4 and the IPv6 descriptor of one socket, made, bound and closed
/// together. Belongs to the network's queue. A problem leaves nothing half done:
/// both are closed after one in `make` or `bind`.
class UDPDescriptorPair {
 public:
  using Problem = std::optional<GCDAsyncUdpSocketError>;

  struct Descriptor {
    int family;
    int number = -1;
    unsigned watched = 0;       ///< the owner's note of what it is watched for
    std::uint32_t dropped = 0;  ///< the owner's note of what was lost so far

    bool isOpen() const noexcept { return number >= 0; }
  };

  explicit UDPDescriptorPair(UDPNetwork& network) : mNetwork(network) {}

  Descriptor& of(int family) noexcept { return family == AF_INET ? mSocket4 : mSocket6; }
  /// The IPv4 one if it is open, else the IPv6 one.
  Descriptor& first() noexcept { return mSocket4.isOpen() ? mSocket4 : mSocket6; }
  bool isOpen() const noexcept { return mSocket4.isOpen() || mSocket6.isOpen(); }
  /// The local address of the first; null when none is open.
  std::optional<SocketAddress> local();

  /// Has effect on descriptors made later.
  void setEnabled(int family, bool enabled) noexcept;
  /// The problem of a pair that may have no descriptor at all.
  Problem checkEnabled() const;

  /// Makes those that are enabled and that the system supports; nothing when there are
  /// some already.
  Problem make();
  /// Makes them and binds them to the port on all interfaces; 0 for one of the
  /// system's choice that is free for both.
  Problem bind(std::uint16_t port);
  /// Connects the one of the address's family, and closes the other.
  Problem connect(const SocketAddress& address);
  /// Makes them; broadcast is IPv4's alone.
  Problem setBroadcast(bool enabled);
  void close();

 private:
  Problem prepare(Descriptor& descriptor);
  Problem bindOnce(std::uint16_t port);
  void close(Descriptor& descriptor);

  UDPNetwork& mNetwork;
  Descriptor mSocket4{AF_INET};
  Descriptor mSocket6{AF_INET6};
  bool mIPv4Enabled = true;
  bool mIPv6Enabled = true;
  bool mBroadcast = false;  // until `close`
};

}  // namespace velor
