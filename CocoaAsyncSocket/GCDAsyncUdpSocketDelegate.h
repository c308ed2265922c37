// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "CocoaAsyncSocket/SocketAddress.h"

namespace velor {

class GCDAsyncUdpSocket;

/// Gets the events of a socket, on its delegate queue.
///
/// A call keeps it alive, so the last reference to it may end on the delegate queue: a
/// delegate that owns its queue must not end that queue
/// there, but hand it to another thread.
class GCDAsyncUdpSocketDelegate {
 public:
  virtual ~GCDAsyncUdpSocketDelegate() = default;

  /// A datagram that passed the filter; never empty, at most
  /// UDPNetwork::kLargestDatagram bytes, gone after the call.
  virtual void udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                       std::span<const std::uint8_t> data,
                                       const SocketAddress& address) {
    static_cast<void>(socket), static_cast<void>(data), static_cast<void>(address);
  }

  /// The socket is connected.
  virtual void udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                            const SocketAddress& address) {
    static_cast<void>(socket), static_cast<void>(address);
  }

  /// The name cannot be resolved, or `connect` failed.
  virtual void udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                      const GCDAsyncUdpSocketError& error) {
    static_cast<void>(socket), static_cast<void>(error);
  }

  /// Whether to call udpSocketDidSendDataWithTag, which costs a job for each datagram.
  virtual bool offersDidSend() const { return false; }

  /// The system has taken the datagram.
  virtual void udpSocketDidSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                           std::int64_t tag) {
    static_cast<void>(socket), static_cast<void>(tag);
  }
  /// The datagram is lost.
  virtual void udpSocketDidNotSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                              std::int64_t tag,
                                              const GCDAsyncUdpSocketError& error) {
    static_cast<void>(socket), static_cast<void>(tag), static_cast<void>(error);
  }

  /// `error`: none after GCDAsyncUdpSocket::close. May come after the owner has made another
  /// socket.
  virtual void udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                 const std::optional<GCDAsyncUdpSocketError>& error) {
    static_cast<void>(socket), static_cast<void>(error);
  }
};

}  // namespace velor
