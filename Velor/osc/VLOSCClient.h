// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketDelegate.h"
#include "Kv-Appkit/KVObservable.h"
#include "Velor/osc/VLQueueEnd.h"
#include "oscpkt/src/oscpkt.h"
#include "platform/discovery/NSNetService.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// The status light in the row of a target.
enum class VLOSCClientStatusImage { available, unavailable, none };

/// A target of feedback: sends messages to a host and port by UDP, and ignores incoming
/// datagrams. When the connection fails, also because this machine has changed its address,
/// it reconnects every kReconnectInterval; once connected, the target gets the state of the
/// clock.
///
/// Observable: "host", "port", "connected", "alive", "statusImage". Queue: main, unless
/// stated otherwise.
class VLOSCClient : public KVObservable,
                    public GCDAsyncUdpSocketDelegate,
                    public store::KeyedCoding,
                    public std::enable_shared_from_this<VLOSCClient> {
 public:
  static constexpr std::string_view kClassName = "VLOSCClient";
  /// ns.
  static constexpr std::uint64_t kReconnectInterval = 5'000'000'000;

  /// Enabled, and starts to connect. Raises without a host and for port 0.
  static std::shared_ptr<VLOSCClient> initWithUdpHost(const std::optional<std::string>& host,
                                                      std::uint16_t port);
  /// Starts to connect; does not send the state. Any thread.
  static std::shared_ptr<VLOSCClient> initWithCoder(store::KeyedUnarchiver& coder);
  ~VLOSCClient() override;

  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// Null when the last attempt to connect could not begin.
  std::optional<std::string> host() const;
  /// Port of the connection; 0 until it is connected.
  std::uint16_t port() const;
  /// As given, whether or not it is connected.
  std::optional<std::string> storedHost() const;
  std::uint16_t storedPort() const;

  bool enabled() const noexcept { return mEnabled.load(); }
  /// Enabling sends the state of the clock.
  void setEnabled(bool enabled);

  /// Whether it is for this run only, and not saved. Any edit makes it permanent.
  bool isForThisRun() const noexcept { return mForThisRun; }
  void setForThisRun(bool forThisRun) noexcept { mForThisRun = forThisRun; }

  /// Connected and present.
  virtual bool alive() const { return connected() && mAlive; }
  /// A target that becomes alive gets the state of the clock.
  void setAlive(bool alive);
  /// Found on the network, connected or not.
  bool isPresent() const noexcept { return mAlive; }
  virtual VLOSCClientStatusImage statusImage() const;

  bool connected() const noexcept { return mConnected; }

  /// Whether the user has entered it.
  virtual bool userDefinedHost() const { return false; }

  const std::optional<std::string>& serviceName() const noexcept { return mServiceName; }
  void setServiceName(std::optional<std::string> name) { mServiceName = std::move(name); }

  const std::shared_ptr<discovery::NSNetService>& netService() const noexcept {
    return mNetService;
  }
  void setNetService(std::shared_ptr<discovery::NSNetService> service) {
    mNetService = std::move(service);
  }
  bool isEqualToNetService(const std::shared_ptr<discovery::NSNetService>& service) const;

  /// Replaces the connection. The look-up of the name runs in the background; messages wait
  /// for it, each at most one second once its turn has come. Accepts broadcast addresses.
  void setHostPort(const std::optional<std::string>& host, std::uint16_t port);

  // --- sending: only while enabled and with a host; lost messages are not repeated.
  // Any thread.

  void sendFloatParam(std::string_view address, float value);
  void sendStringParam(std::string_view address, std::string_view value);
  void sendMessage(const oscpkt::Message& message);

  // --- from the socket. Queue: velor.osc.tx.

  void udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    const SocketAddress& address) override;
  void udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                              const GCDAsyncUdpSocketError& error) override;
  void udpSocketDidNotSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                      std::int64_t tag,
                                      const GCDAsyncUdpSocketError& error) override;
  void udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                         const std::optional<GCDAsyncUdpSocketError>& error) override;

 protected:
  VLOSCClient();

  // For new objects: from arguments, from an archive.
  void initFromUdpHost(const std::optional<std::string>& host, std::uint16_t port);
  void initFromCoder(store::KeyedUnarchiver& coder);

 private:
  // Queue before socket: the socket must close before its queue ends.
  struct Connection {
    ~Connection() {
      if (socket != nullptr) {
        socket->close();
      }
    }

    std::shared_ptr<host::Queue> queue = queueOfAllTargets();
    std::shared_ptr<GCDAsyncUdpSocket> socket;
  };

  // The sockets of all targets report on it; it ends with the last target.
  static std::shared_ptr<host::Queue> queueOfAllTargets();

  std::shared_ptr<GCDAsyncUdpSocket> udpSocket() const;
  void connectTo(const std::optional<std::string>& host, std::uint16_t port);
  void setConnectedLater(const std::shared_ptr<GCDAsyncUdpSocket>& socket, bool connected);
  void reconnectLater(const GCDAsyncUdpSocketError& error);
  void reconnect();

  host::Queue& mMainQueue;
  std::atomic<bool> mEnabled{false};
  std::atomic<std::int64_t> mTag{0};  // of the last datagram
  bool mForThisRun = false;
  bool mAlive = false;
  bool mConnected = false;
  // From a failure of the connection until it is connected or replaced.
  std::atomic<bool> mInterrupted{false};
  bool mReconnectPending = false;
  std::optional<std::string> mServiceName;
  std::shared_ptr<discovery::NSNetService> mNetService;

  mutable std::mutex mMutex;
  // Under mMutex.
  std::optional<std::string> mHost;
  std::optional<std::string> mStoredHost;
  std::uint16_t mPort = 0;
  std::unique_ptr<Connection> mConnection;  // null when it could not begin
};

}  // namespace velor
