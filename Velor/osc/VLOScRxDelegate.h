// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "CocoaAsyncSocket/SocketAddress.h"

namespace velor {

/// Decides who may command, and takes the commands. `address` is where the
/// datagram came from.
class VLOScRxDelegate {
 public:
  virtual ~VLOScRxDelegate() = default;

  /// Asked for every datagram before anything in it is looked at. Queue: velor.osc.
  virtual bool allowFromHost(const std::string& host) = 0;

  // Queue: main, in the order of the messages.

  virtual void commandFromAddressChangePlaybackStatus(const SocketAddress& address, bool play) = 0;
  /// Percent off normal speed, any float.
  virtual void commandFromAddressChangePlaybackSpeed(const SocketAddress& address, float speed) = 0;
  virtual void commandFromAddressChangePrerollStatus(const SocketAddress& address,
                                                     bool preroll) = 0;
  virtual void commandFromAddressChangeArmed(const SocketAddress& address, bool armed) = 0;
  /// 1: the next one, -1: the one before; others mean nothing.
  virtual void commandFromAddressGotoMarker(const SocketAddress& address, std::int32_t marker) = 0;
  virtual void addMarkerCommandFromAddress(const SocketAddress& address) = 0;
};

}  // namespace velor
