// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCClient.h"

#include <array>
#include <cerrno>
#include <limits>
#include <span>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kHostKey = "osc.client.host";
constexpr std::string_view kPortKey = "osc.client.port";
constexpr std::string_view kEnabledKey = "osc.client.enabled";
constexpr std::string_view kServiceNameKey = "osc.client.service_name";

// As given. The two above are empty when the target was not connected.
constexpr std::string_view kStoredHostKey = "osc.client.stored_host";
constexpr std::string_view kStoredPortKey = "osc.client.stored_port";

constexpr double kSendTimeout = 1.0;  // seconds
// Delay of the first attempt to reconnect.
constexpr std::uint64_t kFirstReconnect = 100'000'000;  // ns

constexpr std::array<KVDependency, 2> kDependencies{
    {{"alive", "connected"}, {"statusImage", "alive"}}};

std::uint16_t decodePort(store::KeyedUnarchiver& coder, std::string_view key) {
  const std::int32_t port = coder.decodeInt32(key).value_or(0);
  if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
    coder.refuse(key, std::to_string(port) + " is not a port");
    return 0;
  }
  return static_cast<std::uint16_t>(port);
}

// Whether the socket itself can no longer send: the network is gone, or the address of this
// machine that the system has bound it to. Errors of the destination do not count.
bool isLasting(const GCDAsyncUdpSocketError& error) {
  return error.domain == kPOSIXErrorDomain &&
         (error.code == EINVAL || error.code == EADDRNOTAVAIL || error.code == ENETUNREACH ||
          error.code == ENETDOWN || error.code == ENODEV);
}

void encodeOptional(store::KeyedArchiver& coder, const std::optional<std::string>& value,
                    std::string_view key) {
  value ? coder.encodeString(*value, key) : coder.encodeNull(key);
}

}  // namespace

VLOSCClient::VLOSCClient() : KVObservable(kDependencies), mMainQueue(host::current().mainQueue()) {}

VLOSCClient::~VLOSCClient() = default;

std::shared_ptr<VLOSCClient> VLOSCClient::initWithUdpHost(const std::optional<std::string>& host,
                                                          std::uint16_t port) {
  std::shared_ptr<VLOSCClient> client(new VLOSCClient);
  client->initFromUdpHost(host, port);
  return client;
}

void VLOSCClient::initFromUdpHost(const std::optional<std::string>& host, std::uint16_t port) {
  KV_REQUIRE_PARAMETER(host.has_value(), "host");
  KV_REQUIRE_PARAMETER(port != 0, "port");
  connectTo(host, port);
  mEnabled.store(true);  // without sending the state, which addClient sends
}

std::shared_ptr<VLOSCClient> VLOSCClient::initWithCoder(store::KeyedUnarchiver& coder) {
  std::shared_ptr<VLOSCClient> client(new VLOSCClient);
  client->initFromCoder(coder);
  return client;
}

void VLOSCClient::initFromCoder(store::KeyedUnarchiver& coder) {
  const auto host = coder.decodeString(kHostKey);
  const auto storedHost = coder.decodeString(kStoredHostKey);
  const std::uint16_t port = decodePort(coder, kPortKey);
  const std::uint16_t storedPort = decodePort(coder, kStoredPortKey);
  setServiceName(coder.decodeString(kServiceNameKey));
  const bool enabled = coder.decodeBool(kEnabledKey).value_or(false);
  if (coder.failed()) {
    return;
  }
  connectTo(host ? host : storedHost, port != 0 ? port : storedPort);
  mEnabled.store(enabled);
}

void VLOSCClient::encodeWithCoder(store::KeyedArchiver& coder) const {
  encodeOptional(coder, host(), kHostKey);
  coder.encodeInt32(port(), kPortKey);
  encodeOptional(coder, storedHost(), kStoredHostKey);
  coder.encodeInt32(storedPort(), kStoredPortKey);
  coder.encodeBool(enabled(), kEnabledKey);
  encodeOptional(coder, serviceName(), kServiceNameKey);
}

// --- properties ---

std::optional<std::string> VLOSCClient::host() const {
  const std::lock_guard lock(mMutex);
  return mHost;
}

std::optional<std::string> VLOSCClient::storedHost() const {
  const std::lock_guard lock(mMutex);
  return mStoredHost;
}

std::uint16_t VLOSCClient::storedPort() const {
  const std::lock_guard lock(mMutex);
  return mPort;
}

std::shared_ptr<GCDAsyncUdpSocket> VLOSCClient::udpSocket() const {
  const std::lock_guard lock(mMutex);
  return mConnection != nullptr ? mConnection->socket : nullptr;
}

std::uint16_t VLOSCClient::port() const {
  const auto socket = udpSocket();
  return socket != nullptr ? socket->connectedPort() : std::uint16_t{0};
}

void VLOSCClient::setEnabled(bool enabled) {
  mForThisRun = false;
  mEnabled.store(enabled);
  if (enabled) {
    VLOSCClientDispatcher::sharedDispatcher().updateClient(*this);
  }
}

void VLOSCClient::setAlive(bool alive) {
  {
    const KVAnnouncement announcement(*this, "alive");
    mAlive = alive;
  }
  if (alive) {
    VLOSCClientDispatcher::sharedDispatcher().updateClient(*this);
  }
}

VLOSCClientStatusImage VLOSCClient::statusImage() const {
  return alive() ? VLOSCClientStatusImage::available : VLOSCClientStatusImage::unavailable;
}

bool VLOSCClient::isEqualToNetService(
    const std::shared_ptr<discovery::NSNetService>& service) const {
  return mNetService == service ||
         (service->hostName().has_value() && service->hostName() == storedHost() &&
          service->port() == storedPort());
}

// --- the connection ---

std::shared_ptr<host::Queue> VLOSCClient::queueOfAllTargets() {
  static std::mutex mutex;
  static std::weak_ptr<host::Queue> shared;
  const std::lock_guard lock(mutex);
  auto queue = shared.lock();
  if (queue == nullptr) {
    queue.reset(new host::Queue("velor.osc.tx"), VLQueueEnd());
    shared = queue;
  }
  return queue;
}

void VLOSCClient::setHostPort(const std::optional<std::string>& host, std::uint16_t port) {
  mInterrupted.store(false);
  connectTo(host, port);
}

void VLOSCClient::connectTo(const std::optional<std::string>& host, std::uint16_t port) {
  std::unique_ptr<Connection> former;
  {
    const std::lock_guard lock(mMutex);
    former = std::move(mConnection);
    mStoredHost = host;
    mPort = port;
  }
  former.reset();
  auto next = std::make_unique<Connection>();
  next->socket = GCDAsyncUdpSocket::initWithDelegate(
      std::static_pointer_cast<VLOSCClient>(shared_from_this()), next->queue.get());
  const auto socket = next->socket;
  socket->setPreferIPv4();
  const KVAnnouncement portAnnouncement(*this, "port");
  const KVAnnouncement hostAnnouncement(*this, "host");
  {
    // Before it can report, since reports of other sockets are ignored.
    const std::lock_guard lock(mMutex);
    mConnection = std::move(next);
  }
  const auto begun = socket->connectToHost(host, port);
  if (begun) {
    if (!mInterrupted.load()) {
      VELOR_LOG_INFO("connecting to %s:%u", host->c_str(), static_cast<unsigned>(port));
    }
    {
      const std::lock_guard lock(mMutex);
      mHost = host;
    }
    if (const auto enabled = socket->enableBroadcast(true); !enabled) {
      VELOR_LOG_WARNING("failed to enable broadcast on socket: %s",
                        enabled.error().description().c_str());
    }
    return;
  }
  {
    const std::lock_guard lock(mMutex);
    mHost.reset();
    former = std::move(mConnection);
  }
  if (!mInterrupted.load()) {
    VELOR_LOG_ERROR("error connecting to host: %s", begun.error().description().c_str());
  }
  if (host) {
    reconnectLater(begun.error());
  }
}

void VLOSCClient::udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                               const SocketAddress& address) {
  std::string host;
  std::uint16_t port = 0;
  GCDAsyncUdpSocket::getHost(host, port, address);
  VELOR_LOG_INFO("%s host: %s, %u", "-[VLOSCClient udpSocket:didConnectToAddress:]", host.c_str(),
                 static_cast<unsigned>(port));
  setConnectedLater(socket, true);
}

void VLOSCClient::udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                         const GCDAsyncUdpSocketError& error) {
  if (!mInterrupted.load()) {
    VELOR_LOG_INFO("%s error: %s", "-[VLOSCClient udpSocket:didNotConnect:]",
                   error.description().c_str());
  }
  setConnectedLater(socket, false);
  if (socket == udpSocket()) {
    reconnectLater(error);
  }
}

void VLOSCClient::udpSocketDidNotSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                                 std::int64_t,
                                                 const GCDAsyncUdpSocketError& error) {
  if (isLasting(error) && socket == udpSocket()) {
    setConnectedLater(socket, false);
    reconnectLater(error);
  }
}

void VLOSCClient::udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    const std::optional<GCDAsyncUdpSocketError>&) {
  if (!mInterrupted.load()) {
    VELOR_LOG_INFO("udpSocket did close");
  }
  setConnectedLater(socket, false);
}

// Ignores reports of a replaced socket.
void VLOSCClient::setConnectedLater(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    bool connected) {
  mMainQueue.async([weak = weak_from_this(), socket, connected] {
    const auto self = weak.lock();
    if (self == nullptr || socket != self->udpSocket()) {
      return;
    }
    {
      const KVAnnouncement announcement(*self, "connected");
      self->mConnected = connected;
    }
    if (connected && self->mInterrupted.exchange(false)) {
      VLOSCClientDispatcher::sharedDispatcher().updateClient(*self);
    }
  });
}

void VLOSCClient::reconnectLater(const GCDAsyncUdpSocketError& error) {
  mMainQueue.async([weak = weak_from_this(), error] {
    const auto self = weak.lock();
    if (self == nullptr) {
      return;
    }
    const bool isFirst = !self->mInterrupted.exchange(true);
    if (isFirst) {
      VELOR_LOG_WARNING("cannot send to %s:%u: %s; will reconnect",
                        self->storedHost().value_or("").c_str(), unsigned{self->storedPort()},
                        error.description().c_str());
    }
    if (std::exchange(self->mReconnectPending, true)) {
      return;
    }
    self->mMainQueue.after(isFirst ? kFirstReconnect : kReconnectInterval, [weak] {
      if (const auto again = weak.lock()) {
        again->mReconnectPending = false;
        again->reconnect();
      }
    });
  });
}

void VLOSCClient::reconnect() {
  if (mInterrupted.load()) {
    connectTo(storedHost(), storedPort());
  }
}

// --- sending ---

void VLOSCClient::sendFloatParam(std::string_view address, float value) {
  oscpkt::Message message{std::string(address)};
  message.pushFloat(value);
  sendMessage(message);
}

void VLOSCClient::sendStringParam(std::string_view address, std::string_view value) {
  oscpkt::Message message{std::string(address)};
  message.pushStr(value);
  sendMessage(message);
}

void VLOSCClient::sendMessage(const oscpkt::Message& message) {
  if (!enabled()) {
    return;
  }
  const auto socket = udpSocket();
  if (socket == nullptr) {
    return;
  }
  oscpkt::OscPacketWriter writer;
  writer.addMessage(message);
  const std::span<const std::uint8_t> packet(writer.packetData(), writer.packetSize());
  if (!packet.empty()) {
    socket->sendData({packet.begin(), packet.end()}, kSendTimeout, ++mTag);
  }
}

}  // namespace velor
