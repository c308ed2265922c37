// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCClient.h"

#include <array>
#include <limits>
#include <span>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kHostKey = "osc.client.host";
constexpr std::string_view kPortKey = "osc.client.port";
constexpr std::string_view kEnabledKey = "osc.client.enabled";
constexpr std::string_view kServiceNameKey = "osc.client.service_name";

constexpr double kSendTimeout = 1.0;  // seconds

constexpr std::array<KVDependency, 2> kDependencies{
    {{"alive", "connected"}, {"statusImage", "alive"}}};

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
  setHostPort(host, port);
  mEnabled.store(true);  // without the state of the clock, which comes with the list
}

std::shared_ptr<VLOSCClient> VLOSCClient::initWithCoder(store::KeyedUnarchiver& coder) {
  std::shared_ptr<VLOSCClient> client(new VLOSCClient);
  client->initFromCoder(coder);
  return client;
}

void VLOSCClient::initFromCoder(store::KeyedUnarchiver& coder) {
  const auto host = coder.decodeString(kHostKey);
  const std::int32_t port = coder.decodeInt32(kPortKey).value_or(0);
  if (port < 0 || port > std::numeric_limits<std::uint16_t>::max()) {
    throw store::KeyedArchiveError(std::string(kPortKey), std::to_string(port) + " is no port");
  }
  setServiceName(coder.decodeString(kServiceNameKey));
  const bool enabled = coder.decodeBool(kEnabledKey).value_or(false);
  setHostPort(host, static_cast<std::uint16_t>(port));
  mEnabled.store(enabled);
}

void VLOSCClient::encodeWithCoder(store::KeyedArchiver& coder) const {
  encodeOptional(coder, host(), kHostKey);
  coder.encodeInt32(port(), kPortKey);
  coder.encodeBool(enabled(), kEnabledKey);
  encodeOptional(coder, serviceName(), kServiceNameKey);
}

// --- properties ---

std::optional<std::string> VLOSCClient::host() const {
  const std::lock_guard lock(mMutex);
  return mHost;
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
  return mNetService == service || (service->hostName().has_value() &&
                                    service->hostName() == host() && service->port() == port());
}

// --- the connection ---

void VLOSCClient::setHostPort(const std::optional<std::string>& host, std::uint16_t port) {
  std::unique_ptr<Connection> former;
  {
    const std::lock_guard lock(mMutex);
    former = std::move(mConnection);
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
    // Before it can tell of itself, by which it is known as the present one.
    const std::lock_guard lock(mMutex);
    mConnection = std::move(next);
  }
  GCDAsyncUdpSocketError error;
  if (socket->connectToHost(host, port, &error)) {
    VELOR_LOG_INFO("connecting to %s:%u", host->c_str(), static_cast<unsigned>(port));
    {
      const std::lock_guard lock(mMutex);
      mHost = host;
      mPort = port;
    }
    if (!socket->enableBroadcast(true, &error)) {
      VELOR_LOG_WARNING("failed to enable broadcast on socket: %s", error.description().c_str());
    }
    return;
  }
  {
    const std::lock_guard lock(mMutex);
    mHost.reset();
    former = std::move(mConnection);
  }
  VELOR_LOG_ERROR("error connecting to host: %s", error.description().c_str());
}

void VLOSCClient::udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>&,
                                               const SocketAddress& address) {
  std::string host;
  std::uint16_t port = 0;
  GCDAsyncUdpSocket::getHost(host, port, address);
  VELOR_LOG_INFO("%s host: %s, %u", "-[VLOSCClient udpSocket:didConnectToAddress:]", host.c_str(),
                 static_cast<unsigned>(port));
  setConnectedLater(true);
}

void VLOSCClient::udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>&,
                                         const GCDAsyncUdpSocketError& error) {
  VELOR_LOG_INFO("%s error: %s", "-[VLOSCClient udpSocket:didNotConnect:]",
                 error.description().c_str());
  setConnectedLater(false);
}

void VLOSCClient::udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>& socket,
                                    const GCDAsyncUdpSocketError*) {
  VELOR_LOG_INFO("udpSocket did close");
  // One that was replaced says nothing of its successor.
  if (socket == udpSocket()) {
    setConnectedLater(false);
  }
}

void VLOSCClient::setConnectedLater(bool connected) {
  mMainQueue.async([weak = weak_from_this(), connected] {
    if (const auto self = weak.lock()) {
      const KVAnnouncement announcement(*self, "connected");
      self->mConnected = connected;
    }
  });
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
