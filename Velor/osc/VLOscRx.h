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

/// Receives OSC by UDP and makes commands of it, for one run of the server.
///
/// A command is a message to one of these addresses, which may be given as an OSC
/// pattern, with one argument of type f. Whatever else comes in does nothing, and
/// is not answered. A bundle acts at once, whatever its time tag says; a datagram
/// with anything that cannot be read does nothing at all.
///
///   /velor/transport/play   f > 0       /velor/speed     any f, percent off normal
///   /velor/transport/stop   f > 0       /velor/preroll   on for f > 0, else off
///   /velor/marker/goto      1 or -1     /velor/arm       on for f > 0, else off
///   /velor/marker/add       f > 0
///
/// One message is one command at most: of several addresses that a pattern meets,
/// the first in this order down the columns, within the branch that its first
/// names lead to.
///
/// When the main queue is kMostCommandsWaiting behind, nothing more is taken from
/// the socket until it has caught up, so that a flood costs no memory: what comes
/// meanwhile waits with the system, and is dropped there when that has no room.
class VLOscRx final : public GCDAsyncUdpSocketDelegate,
                      public std::enable_shared_from_this<VLOscRx> {
 public:
  static constexpr std::uint32_t kMostCommandsWaiting = 1024;

  /// The delegate is held weakly; once it has gone nobody is let in. Raises for null.
  static std::shared_ptr<VLOscRx> initWithDelegate(
      const std::shared_ptr<VLOScRxDelegate>& delegate);
  /// Stops. Any thread.
  ~VLOscRx() override;
  VLOscRx(const VLOscRx&) = delete;
  VLOscRx& operator=(const VLOscRx&) = delete;

  /// Any thread but velor.osc.
  GCDAsyncUdpSocketResult startAtPort(std::uint16_t port);
  /// Makes no more commands once it has returned; those made already still reach
  /// the delegate. Any thread but velor.osc.
  void stop();

  bool running() const noexcept { return mRunning.load(); }
  /// 0 while it does not run.
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
  VLQueueEnd::Owned mWorkQueue;                // set in construction for good
  std::shared_ptr<GCDAsyncUdpSocket> mSocket;  // set in construction for good
};

}  // namespace velor
