// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <span>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "CocoaAsyncSocket/SocketAddress.h"

namespace velor {

class GCDAsyncUdpSocket;

/// Hears of a socket, on its delegate queue.
///
/// While a call is under way it is kept alive, so the last hold on it may end on
/// the delegate queue: a delegate that owns its queue must not end that queue
/// there, but hand it to another thread.
class GCDAsyncUdpSocketDelegate {
 public:
  virtual ~GCDAsyncUdpSocketDelegate() = default;

  /// A datagram that passed the filter; never empty, at most
  /// UDPNetwork::kLargestDatagram bytes, gone after the call. `filterContext` is
  /// what the filter left there.
  virtual void udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                       std::span<const std::uint8_t> data,
                                       const SocketAddress& address,
                                       const std::any& filterContext) {
    static_cast<void>(socket), static_cast<void>(data);
    static_cast<void>(address), static_cast<void>(filterContext);
  }

  /// The destination stands.
  virtual void udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                            const SocketAddress& address) {
    static_cast<void>(socket), static_cast<void>(address);
  }

  /// The host has no address, or none that can be connected to.
  virtual void udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                      const GCDAsyncUdpSocketError& error) {
    static_cast<void>(socket), static_cast<void>(error);
  }

  /// The system did not take a datagram.
  virtual void udpSocketDidNotSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                              std::int64_t tag,
                                              const GCDAsyncUdpSocketError& error) {
    static_cast<void>(socket), static_cast<void>(tag), static_cast<void>(error);
  }

  /// Null after GCDAsyncUdpSocket::close. May come after its owner has made
  /// another socket.
  virtual void udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                 const GCDAsyncUdpSocketError* error) {
    static_cast<void>(socket), static_cast<void>(error);
  }
};

}  // namespace velor
