// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketDelegate.h"
#include "Velor/osc/VLOScRxDelegate.h"
#include "Velor/osc/VLQueueEnd.h"
#include "platform/host/Host.h"
#include "platform/host/Queue.h"

namespace velor {

/// Receives OSC by UDP and turns it into commands, for one run of the server.
///
/// A command is a message to one of these addresses, or to an OSC pattern that matches one,
/// with one argument of type f. Other messages have no effect and no answer. A bundle acts
/// at once, whatever its time tag; a datagram with an error has no effect at all.
///
///   /velor/transport/play   f > 0       /velor/speed     any f, deviation in percent
///   /velor/transport/stop   f > 0       /velor/preroll   on if f > 0, otherwise off
///   /velor/marker/goto      1 or -1     /velor/arm       on if f > 0, otherwise off
///   /velor/marker/add       f > 0
///
/// A message gives at most one command: the first that its pattern matches, down the columns,
/// within the branch of its first names (transport, marker, or the rest).
///
/// While kMostCommandsWaiting commands wait on the main queue, the socket is not read, so
/// that a flood costs no memory: datagrams wait in the system's buffer, which drops them
/// when it is full.
class VLOscRx final : public GCDAsyncUdpSocketDelegate,
                      public std::enable_shared_from_this<VLOscRx> {
 public:
  static constexpr std::uint32_t kMostCommandsWaiting = 1024;

  /// Holds the delegate weakly; without it every host is refused. Raises for null.
  static std::shared_ptr<VLOscRx> initWithDelegate(
      const std::shared_ptr<VLOScRxDelegate>& delegate);
  /// Stops. Any thread.
  ~VLOscRx() override;
  VLOscRx(const VLOscRx&) = delete;
  VLOscRx& operator=(const VLOscRx&) = delete;

  /// Any thread but velor.osc.
  GCDAsyncUdpSocketResult startAtPort(std::uint16_t port);
  /// Gives no new commands after it has returned; commands on the main queue still reach the
  /// delegate. Any thread but velor.osc.
  void stop();

  bool running() const noexcept { return mRunning.load(); }
  /// 0 while stopped.
  std::uint16_t port() const { return mSocket->localPort(); }
  /// "osc.udp://0.0.0.0:7770/", with brackets around an IPv6 address.
  std::optional<std::string> urlString() const;

  void udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                               std::span<const std::uint8_t> data,
                               const SocketAddress& address) override;

 private:
  explicit VLOscRx(const std::shared_ptr<VLOScRxDelegate>& delegate);

  void waitForMainQueue();
  void commandEnded();
  void endWaiting();

  const std::weak_ptr<VLOScRxDelegate> mDelegate;
  host::Queue& mMainQueue;
  std::atomic<bool> mRunning{false};
  std::atomic<std::uint32_t> mCommandsWaiting{0};  // on the main queue
  std::atomic<bool> mWaitsForMainQueue{false};
  const std::unique_ptr<host::Semaphore> mRoom;
  VLQueueEnd::Owned mWorkQueue;                // set once, at construction
  std::shared_ptr<GCDAsyncUdpSocket> mSocket;  // set once, at construction
};

}  // namespace velor
