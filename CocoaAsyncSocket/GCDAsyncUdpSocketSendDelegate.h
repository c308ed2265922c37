// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"

namespace velor {

class GCDAsyncUdpSocket;

/// What a delegate is besides when it wants to hear of each datagram that it
/// sends, on the delegate queue and in the order of sending.
class GCDAsyncUdpSocketSendDelegate {
 public:
  virtual ~GCDAsyncUdpSocketSendDelegate() = default;

  /// The system has taken the datagram.
  virtual void udpSocketDidSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                           std::int64_t tag) = 0;
};

}  // namespace velor
