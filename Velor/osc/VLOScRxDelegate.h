// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "CocoaAsyncSocket/SocketAddress.h"

namespace velor {

/// Decides which hosts may send commands, and gets the commands. `address`: the sender.
class VLOScRxDelegate {
 public:
  virtual ~VLOScRxDelegate() = default;

  /// Called for every datagram before it is read. Queue: velor.osc.
  virtual bool allowFromHost(const std::string& host) = 0;

  // Queue: main, in the order of the messages.

  virtual void commandFromAddressChangePlaybackStatus(const SocketAddress& address, bool play) = 0;
  /// Deviation from normal speed in percent; any float.
  virtual void commandFromAddressChangePlaybackSpeed(const SocketAddress& address, float speed) = 0;
  virtual void commandFromAddressChangePrerollStatus(const SocketAddress& address,
                                                     bool preroll) = 0;
  virtual void commandFromAddressChangeArmed(const SocketAddress& address, bool armed) = 0;
  /// 1: next, -1: previous; ignore others.
  virtual void commandFromAddressGotoMarker(const SocketAddress& address, std::int32_t marker) = 0;
  virtual void addMarkerCommandFromAddress(const SocketAddress& address) = 0;
};

}  // namespace velor
