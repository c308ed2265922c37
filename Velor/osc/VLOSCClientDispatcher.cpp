// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCClientDispatcher.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "kvtimecode/SMPTEString.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kTimeAddress = "/velor/time";
constexpr std::string_view kSpeedAddress = "/velor/speed";
constexpr std::string_view kPlayAddress = "/velor/transport/play";
constexpr std::string_view kStopAddress = "/velor/transport/stop";
constexpr std::string_view kPrerollAddress = "/velor/preroll";
constexpr std::string_view kArmAddress = "/velor/arm";

constexpr std::string_view kClientsKey = "root";
constexpr std::array<store::KeyedClass, 2> kArchivedClasses{
    store::KeyedClass::of<VLOSCClient>(), store::KeyedClass::of<VLUserDefinedOSCClient>()};

constexpr std::array<KVKeyPathOperation<VLOSCClientDispatcher>, 5> kObserved{{
    {"playRatePercent", &VLOSCClientDispatcher::playRatePercentChanged},
    {"armed", &VLOSCClientDispatcher::armedChanged},
    {"status", &VLOSCClientDispatcher::statusChanged},
    {"preroll", &VLOSCClientDispatcher::prerollChanged},
    {"time", &VLOSCClientDispatcher::timeChanged},
}};

float switchValue(bool on) {
  return on ? 1.0F : 0.0F;
}

void sendStatus(VLOSCClient& client, bool running) {
  client.sendFloatParam(kPlayAddress, switchValue(running));
  client.sendFloatParam(kStopAddress, switchValue(!running));
}

}  // namespace

VLOSCClientDispatcher& VLOSCClientDispatcher::sharedDispatcher() {
  return KVShared<VLOSCClientDispatcher>::instance();
}

VLOSCClientDispatcher::VLOSCClientDispatcher()
    : mSelf(this),
      mObserver(KVKeyValueObserver::observeKeyPaths<VLOSCClientDispatcher>(
          kObserved, VLClock::sharedClock(), mSelf)),
      mBonjourBrowser(discovery::NSNetServiceBrowser::init()) {
  mBonjourBrowser->setDelegate(mSelf);
  mBonjourBrowser->searchForServicesOfType("_osc._udp.", "local");
}

VLOSCClientDispatcher::~VLOSCClientDispatcher() = default;

// --- targets ---

VLOSCClientDispatcher::Clients VLOSCClientDispatcher::clients() const {
  const std::lock_guard lock(mMutex);
  return mClients;
}

void VLOSCClientDispatcher::addClient(const std::shared_ptr<VLOSCClient>& client) {
  KV_REQUIRE_PARAMETER(client != nullptr, "client");
  {
    const KVAnnouncement announcement(*this, "clients");
    const std::lock_guard lock(mMutex);
    mClients.push_back(client);
  }
  updateClient(*client);
}

void VLOSCClientDispatcher::removeClientsAtIndexes(const std::set<std::size_t>& indexes) {
  Clients removed;  // destroyed after the lock is released
  const KVAnnouncement announcement(*this, "clients");
  const std::lock_guard lock(mMutex);
  KV_REQUIRE_PARAMETER(indexes.empty() || *indexes.rbegin() < mClients.size(), "indexes");
  for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
    const auto client = std::next(mClients.begin(), static_cast<std::ptrdiff_t>(*index));
    removed.push_back(std::move(*client));
    mClients.erase(client);
  }
}

std::shared_ptr<VLOSCClient> VLOSCClientDispatcher::clientMatchingToServive(
    const Service& service) const {
  const Clients all = clients();
  const auto found = std::find_if(all.begin(), all.end(), [&service](const auto& client) {
    return client->isEqualToNetService(service);
  });
  return found != all.end() ? *found : nullptr;
}

void VLOSCClientDispatcher::addClientFromNetService(const Service& service) {
  KV_REQUIRE_PARAMETER(service != nullptr, "service");
  if (const auto client = clientMatchingToServive(service)) {
    client->setAlive(true);
    return;
  }
  mUnresolvedClients.push_back(service);
  resolveNext();
}

void VLOSCClientDispatcher::resolveNext() {
  while (mResolutions < std::min(kMostResolutions, mUnresolvedClients.size())) {
    const Service service = mUnresolvedClients[mResolutions++];
    service->setDelegate(mSelf);
    service->resolveWithTimeout(kResolveTimeout);
  }
}

void VLOSCClientDispatcher::resolutionEnded(const Service& service) {
  const auto place = std::find(mUnresolvedClients.begin(), mUnresolvedClients.end(), service);
  if (place == mUnresolvedClients.end()) {
    return;
  }
  if (static_cast<std::size_t>(place - mUnresolvedClients.begin()) < mResolutions) {
    --mResolutions;
  }
  mUnresolvedClients.erase(place);
  resolveNext();
}

// Names of present services are unique, so a service with the name of an absent target is
// that target, at another address or port.
std::shared_ptr<VLOSCClient> VLOSCClientDispatcher::absentClientNamed(
    const std::string& name) const {
  const Clients all = clients();
  const auto found = std::find_if(all.begin(), all.end(), [&name](const auto& client) {
    return !client->userDefinedHost() && !client->isPresent() && client->serviceName() == name;
  });
  return found != all.end() ? *found : nullptr;
}

void VLOSCClientDispatcher::dropFoundClients(Clients& clients, std::size_t most) {
  auto found = static_cast<std::size_t>(
      std::count_if(clients.begin(), clients.end(),
                    [](const auto& client) { return !client->userDefinedHost(); }));
  std::erase_if(clients, [&found, most](const auto& client) {
    const bool goes = found > most && !client->userDefinedHost() && !client->isPresent();
    found -= goes ? 1 : 0;
    return goes;
  });
}

// False when kMostFoundClients are present.
bool VLOSCClientDispatcher::makeRoomForFoundClient() {
  Clients all = clients();
  const std::size_t before = all.size();
  dropFoundClients(all, kMostFoundClients - 1);
  if (all.size() < before) {
    const KVAnnouncement announcement(*this, "clients");
    const std::lock_guard lock(mMutex);
    mClients.swap(all);
  }
  const Clients left = clients();
  return static_cast<std::size_t>(std::count_if(left.begin(), left.end(), [](const auto& client) {
           return !client->userDefinedHost();
         })) < kMostFoundClients;
}

void VLOSCClientDispatcher::removeClientWithNetService(const Service& service) {
  resolutionEnded(service);
  if (const auto client = clientMatchingToServive(service)) {
    client->setAlive(false);
  }
}

bool VLOSCClientDispatcher::isMyOwnService(const discovery::NSNetService& service) {
  const VLOSCServer& server = VLOSCServer::sharedServer();
  if (!server.running() || service.port() != server.port()) {
    return false;
  }
  const auto record = discovery::NSNetService::dictionaryFromTXTRecordData(service.TXTRecordData());
  const auto uid = record.find(std::string(VLOSCServer::kUIDKey));
  return uid != record.end() && uid->second &&
         std::string(uid->second->begin(), uid->second->end()) == server.uuid();
}

// --- updates ---

VLOSCClientDispatcher::State VLOSCClientDispatcher::lastState() const {
  const std::lock_guard lock(mMutex);
  return mState;
}

template <class Send>
void VLOSCClientDispatcher::sendToAll(Send send) const {
  for (const auto& client : clients()) {
    send(*client);
  }
}

void VLOSCClientDispatcher::updateSpeed(float speed) {
  {
    const std::lock_guard lock(mMutex);
    mState.speed = speed;
  }
  sendToAll([speed](VLOSCClient& client) { client.sendFloatParam(kSpeedAddress, speed); });
}

void VLOSCClientDispatcher::updateStatus(bool running) {
  {
    const std::lock_guard lock(mMutex);
    mState.status = running;
  }
  sendToAll([running](VLOSCClient& client) { sendStatus(client, running); });
}

void VLOSCClientDispatcher::updateTime(const SMPTETime& time) {
  const std::string text = stringFromSMPTETime(time);
  {
    const std::lock_guard lock(mMutex);
    mState.timeString = text;
  }
  sendToAll([&text](VLOSCClient& client) { client.sendStringParam(kTimeAddress, text); });
}

void VLOSCClientDispatcher::updatePreroll(bool preroll) {
  {
    const std::lock_guard lock(mMutex);
    mState.preroll = preroll;
  }
  sendToAll([preroll](VLOSCClient& client) {
    client.sendFloatParam(kPrerollAddress, switchValue(preroll));
  });
}

void VLOSCClientDispatcher::updateArm(bool armed) {
  {
    const std::lock_guard lock(mMutex);
    mState.arm = armed;
  }
  sendToAll(
      [armed](VLOSCClient& client) { client.sendFloatParam(kArmAddress, switchValue(armed)); });
}

void VLOSCClientDispatcher::updateClient(VLOSCClient& client) const {
  const State state = lastState();
  client.sendFloatParam(kSpeedAddress, state.speed.value_or(0));
  sendStatus(client, state.status);
  if (state.timeString) {
    client.sendStringParam(kTimeAddress, *state.timeString);
  }
}

// --- from the clock ---

void VLOSCClientDispatcher::willTakeSpeed(float speed) {
  const auto now = static_cast<float>(VLClock::sharedClock().playRatePercent());
  const std::lock_guard lock(mMutex);
  if (speed != now) {
    mState.speed.reset();
  }
}
void VLOSCClientDispatcher::willTakePreroll(bool preroll) {
  const bool now = VLClock::sharedClock().preroll();
  const std::lock_guard lock(mMutex);
  if (preroll != now) {
    mState.preroll.reset();
  }
}
void VLOSCClientDispatcher::willTakeArm(bool armed) {
  const bool now = VLClock::sharedClock().armed();
  const std::lock_guard lock(mMutex);
  if (armed != now) {
    mState.arm.reset();
  }
}

void VLOSCClientDispatcher::playRatePercentChanged() {
  const auto speed = static_cast<float>(VLClock::sharedClock().playRatePercent());
  if (speed != lastState().speed) {
    updateSpeed(speed);
  }
}
void VLOSCClientDispatcher::armedChanged() {
  const bool armed = VLClock::sharedClock().armed();
  if (armed != lastState().arm) {
    updateArm(armed);
  }
}
void VLOSCClientDispatcher::statusChanged() {
  updateStatus(VLClock::sharedClock().running());
}
void VLOSCClientDispatcher::prerollChanged() {
  const bool preroll = VLClock::sharedClock().preroll();
  if (preroll != lastState().preroll) {
    updatePreroll(preroll);
  }
}
void VLOSCClientDispatcher::timeChanged() {
  updateTime(VLClock::sharedClock().time());
}

// --- settings ---

Expected<std::string> VLOSCClientDispatcher::settingsData() const {
  store::KeyedArchiver archiver;
  Clients lasting = clients();
  std::erase_if(lasting, [](const auto& client) { return client->isForThisRun(); });
  archiver.encodeArray(lasting, kClientsKey);
  return archiver.data();
}

Expected<> VLOSCClientDispatcher::loadSettingsFromData(const std::string& data) {
  Clients clients;
  const auto read = store::KeyedUnarchiver::read(data, kArchivedClasses)
                        .and_then([&clients](store::KeyedUnarchiver coder) {
                          clients = coder.decodeArray<VLOSCClient>(kClientsKey).value_or(Clients());
                          return coder.check();
                        });
  std::erase(clients, nullptr);
  dropFoundClients(clients, kMostFoundClients);
  const KVAnnouncement announcement(*this, "clients");
  const std::lock_guard lock(mMutex);
  mClients.swap(clients);
  return read;
}

// --- from the network ---

void VLOSCClientDispatcher::netServiceBrowserDidFindService(discovery::NSNetServiceBrowser&,
                                                            const Service& service, bool) {
  VELOR_LOG_INFO("did find service: %s: %s", service->name().c_str(), service->type().c_str());
  addClientFromNetService(service);
}

void VLOSCClientDispatcher::netServiceBrowserDidRemoveService(discovery::NSNetServiceBrowser&,
                                                              const Service& service, bool) {
  VELOR_LOG_INFO("did remove service: %s", service->name().c_str());
  removeClientWithNetService(service);
}

void VLOSCClientDispatcher::netServiceDidResolveAddress(const Service& service) {
  const std::string host = service->hostName().value_or("");
  VELOR_LOG_INFO("%s %s", "-[VLOSCClientDispatcher netServiceDidResolveAddress:]", host.c_str());
  resolutionEnded(service);
  if (isMyOwnService(*service)) {
    return;
  }
  if (const auto client = clientMatchingToServive(service)) {
    client->setAlive(true);
    client->setNetService(service);
    return;
  }
  if (service->port() == 0) {  // only reserves the name
    return;
  }
  if (const auto moved = absentClientNamed(service->name())) {
    moved->setHostPort(host, service->port());
    moved->setAlive(true);
    moved->setNetService(service);
    return;
  }
  if (!makeRoomForFoundClient()) {
    if (!std::exchange(mToldFull, true)) {
      VELOR_LOG_WARNING("%zu OSC services are targets already; %s and others get no feedback",
                        kMostFoundClients, service->name().c_str());
    }
    return;
  }
  const auto client = VLOSCClient::initWithUdpHost(host, service->port());
  client->setServiceName(service->name());
  client->setAlive(true);
  client->setNetService(service);
  addClient(client);
}

void VLOSCClientDispatcher::netServiceDidNotResolve(const Service& service,
                                                    const discovery::NSNetServicesError& error) {
  VELOR_LOG_INFO("net service did not resolve: %s, %s", service->description().c_str(),
                 error.text.c_str());
  resolutionEnded(service);
}

void VLOSCClientDispatcher::netServiceDidStop(const Service& service) {
  VELOR_LOG_INFO("%s %s", "-[VLOSCClientDispatcher netServiceDidStop:]",
                 service->description().c_str());
}

}  // namespace velor
