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

/// What the row of a target shows.
enum class VLOSCClientStatusImage { available, unavailable, none };

/// A target of feedback: a host and port to which messages go by UDP. Nothing that
/// comes from there is read. A connection that cannot stand, or that stops to work since
/// this machine has another address, is made again every kReconnectInterval until it
/// stands; the target gets the state of the clock then.
///
/// Observable: "host", "port", "connected", "alive", "statusImage". Main queue,
/// where nothing else is said.
class VLOSCClient : public KVObservable,
                    public GCDAsyncUdpSocketDelegate,
                    public store::KeyedCoding,
                    public std::enable_shared_from_this<VLOSCClient> {
 public:
  static constexpr std::string_view kClassName = "VLOSCClient";
  /// ns.
  static constexpr std::uint64_t kReconnectInterval = 5'000'000'000;

  /// Enabled, and connecting. Raises for no host and for port 0.
  static std::shared_ptr<VLOSCClient> initWithUdpHost(const std::optional<std::string>& host,
                                                      std::uint16_t port);
  /// Connects itself; sends nothing yet. Any thread.
  static std::shared_ptr<VLOSCClient> initWithCoder(store::KeyedUnarchiver& coder);
  ~VLOSCClient() override;

  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// Null after an attempt to connect that could not begin.
  std::optional<std::string> host() const;
  /// That of the connection; 0 before it stands.
  std::uint16_t port() const;
  /// As they were given, whatever became of the connection.
  std::optional<std::string> storedHost() const;
  std::uint16_t storedPort() const;

  bool enabled() const noexcept { return mEnabled.load(); }
  /// One that is enabled gets the state of the clock at once.
  void setEnabled(bool enabled);

  /// Whether it ends with the run, and is not saved. An edit makes it last.
  bool isForThisRun() const noexcept { return mForThisRun; }
  void setForThisRun(bool forThisRun) noexcept { mForThisRun = forThisRun; }

  /// Connected, and seen on the network.
  virtual bool alive() const { return connected() && mAlive; }
  /// One that is seen again gets the state of the clock at once.
  void setAlive(bool alive);
  /// Seen on the network, connected or not.
  bool isPresent() const noexcept { return mAlive; }
  virtual VLOSCClientStatusImage statusImage() const;

  bool connected() const noexcept { return mConnected; }

  /// Whether the user has typed it in.
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

  /// Gives the old connection up for this one. The name is looked up in the
  /// background; what is sent meanwhile waits for it, a second at most once its
  /// turn has come. Broadcast addresses are hosts too.
  void setHostPort(const std::optional<std::string>& host, std::uint16_t port);

  // --- sending: nothing while disabled or without a host, and what is lost is lost.
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

  // For a new object of a class: what was given, what is stored.
  void initFromUdpHost(const std::optional<std::string>& host, std::uint16_t port);
  void initFromCoder(store::KeyedUnarchiver& coder);

 private:
  // The queue first: a socket must be closed before its queue ends.
  struct Connection {
    ~Connection() {
      if (socket != nullptr) {
        socket->close();
      }
    }

    std::shared_ptr<host::Queue> queue = queueOfAllTargets();
    std::shared_ptr<GCDAsyncUdpSocket> socket;
  };

  // On it the sockets of all targets report; it ends with the last of them.
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
  // From a failure of the connection until it stands again, or is changed.
  std::atomic<bool> mInterrupted{false};
  bool mReconnectPending = false;
  std::optional<std::string> mServiceName;
  std::shared_ptr<discovery::NSNetService> mNetService;

  mutable std::mutex mMutex;
  // Under mMutex.
  std::optional<std::string> mHost;
  std::optional<std::string> mStoredHost;
  std::uint16_t mPort = 0;
  std::unique_ptr<Connection> mConnection;  // null after one that could not begin
};

}  // namespace velor
