// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCServer.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVUUID.h"
#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOscRx.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::array<KVDependency, 1> kDependencies{{{"url", "running"}}};

constexpr std::array<store::KeyedClass, 1> kArchivedClasses{
    store::KeyedClass::of<VLOSCHostFilterEntry>()};
// Key of the list of hosts, the only one in its archive.
constexpr std::string_view kHostsKey = "root";

Expected<VLOSCServer::Entries> unarchiveHosts(const std::vector<std::uint8_t>& data) {
  if (data.empty()) {
    return {};
  }
  auto archive = store::KeyedUnarchiver::read(
      {reinterpret_cast<const char*>(data.data()), data.size()}, kArchivedClasses);
  if (!archive) {
    return failure("hostfilter: " + archive.error().text);
  }
  auto entries = archive->decodeArray<VLOSCHostFilterEntry>(kHostsKey);
  return archive->check().map([&entries] { return entries.value_or(VLOSCServer::Entries()); });
}

}  // namespace

VLOSCServer& VLOSCServer::sharedServer() {
  return KVShared<VLOSCServer>::instance();
}

VLOSCServer::VLOSCServer() : KVObservable(kDependencies), mHost(host::current()), mSelf(this) {}

VLOSCServer::~VLOSCServer() {
  if (const auto rx = oscRx()) {
    rx->stop();
  }
}

// --- the service ---

std::shared_ptr<VLOscRx> VLOSCServer::oscRx() const {
  const std::lock_guard lock(mServiceMutex);
  return mOscRx;
}

GCDAsyncUdpSocketResult VLOSCServer::startUdPServerAtPort(std::uint16_t port) {
  const KVAnnouncement announcement(*this, "running");
  auto rx = VLOscRx::initWithDelegate(mSelf);
  {
    const std::lock_guard lock(mServiceMutex);
    rx.swap(mOscRx);
    mNextStart.reset();
    mRefusedPort.reset();
  }
  rx.reset();  // the former one
  auto started = oscRx()->startAtPort(port);
  if (started) {
    publish(port);
  } else {
    const std::lock_guard lock(mServiceMutex);
    mRefusedPort = port;
  }
  return started;
}

GCDAsyncUdpSocketResult VLOSCServer::startForThisRunAtPort(std::uint16_t port) {
  const NextStart kept = nextStart();
  stop();
  auto started = startUdPServerAtPort(port);
  const std::lock_guard lock(mServiceMutex);
  mNextStart = kept;
  return started;
}

VLOSCServer::NextStart VLOSCServer::nextStart() const {
  {
    const std::lock_guard lock(mServiceMutex);
    if (mNextStart) {
      return *mNextStart;
    }
  }
  return {running(), port()};
}

std::optional<std::uint16_t> VLOSCServer::refusedPort() const {
  const std::lock_guard lock(mServiceMutex);
  return mRefusedPort;
}

void VLOSCServer::publish(std::uint16_t port) {
  using discovery::NSNetService;
  auto service = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC", port);
  const std::string uuid = KVUUID().UUIDString();
  service->setTXTRecordData(NSNetService::dataFromTXTRecordDictionary(
      {{std::string(kUIDKey), std::vector<std::uint8_t>(uuid.begin(), uuid.end())}}));
  {
    const std::lock_guard lock(mServiceMutex);
    mUUID = uuid;
    mNetService.swap(service);
  }
  service.reset();  // the former one frees the name
  const std::lock_guard lock(mServiceMutex);
  mNetService->publishWithOptions(0);
}

void VLOSCServer::stop() {
  const KVAnnouncement announcement(*this, "running");
  if (const auto rx = oscRx()) {
    rx->stop();
  }
  const std::lock_guard lock(mServiceMutex);
  mNextStart.reset();
}

bool VLOSCServer::running() const {
  const auto rx = oscRx();
  return rx != nullptr && rx->running();
}

std::uint16_t VLOSCServer::port() const {
  const auto rx = oscRx();
  return rx != nullptr ? rx->port() : std::uint16_t{0};
}

std::optional<std::string> VLOSCServer::url() const {
  const auto rx = oscRx();
  return rx != nullptr ? rx->urlString() : std::nullopt;
}

std::string VLOSCServer::uuid() const {
  const std::lock_guard lock(mServiceMutex);
  return mUUID;
}

// --- who may command ---

void VLOSCServer::setFilterMode(std::int32_t filterMode) {
  const KVAnnouncement announcement(*this, "filterMode");
  mFilterMode.store(filterMode);
}

bool VLOSCServer::allowFromHost(const std::string& host) {
  if (filterMode() == kPromiscuousMode) {
    return true;
  }
  const std::lock_guard lock(mHostsMutex);
  if (mHostFilterHash.contains(host)) {
    return true;
  }
  if (!mKnown.contains(host)) {
    noteRefused(host);
  }
  return false;
}

void VLOSCServer::noteRefused(const std::string& host) {
  mKnown.insert(host);
  mRefused.push_back(host);
  if (mRefused.size() > kMostUntickedEntries) {  // the list would drop it as well
    mKnown.erase(mRefused.front());
    mRefused.pop_front();
  }
  if (!std::exchange(mListingPosted, true)) {
    const std::uint64_t now = mHost.AudioGetCurrentHostTime();
    mHost.mainQueue().after(mNextListing > now ? mNextListing - now : 0,
                            mSelf.job([](VLOSCServer& self) { self.listRefused(); }));
  }
}

void VLOSCServer::listRefused() {
  std::deque<std::string> refused;
  {
    const std::lock_guard lock(mHostsMutex);
    refused.swap(mRefused);
    mListingPosted = false;
    mNextListing = mHost.AudioGetCurrentHostTime() + kListingInterval;
  }
  Entries added;
  for (std::string& host : refused) {
    if (std::none_of(mHostFilter.begin(), mHostFilter.end(),
                     [&host](const auto& entry) { return entry->address() == host; })) {
      added.push_back(VLOSCHostFilterEntry::initWithAddress(std::move(host), mSelf));
    }
  }
  if (added.empty()) {
    return;
  }
  const KVAnnouncement announcement(*this, "hostFilter");
  mHostFilter.insert(mHostFilter.end(), added.begin(), added.end());
  auto unticked = static_cast<std::size_t>(std::count_if(
      mHostFilter.begin(), mHostFilter.end(), [](const auto& entry) { return !entry->enabled(); }));
  std::erase_if(mHostFilter, [this, &unticked](const auto& entry) {
    const bool goes = unticked > kMostUntickedEntries && !entry->enabled();
    if (goes) {
      --unticked;
      release(*entry);
    }
    return goes;
  });
}

void VLOSCServer::hostFilterEntryChangedEnabled(VLOSCHostFilterEntry& entry, bool enabled) {
  const std::lock_guard lock(mHostsMutex);
  if (enabled) {
    mHostFilterHash.insert(entry.address());
  } else {
    mHostFilterHash.erase(entry.address());
  }
}

// Only ticks of listed entries may let a host in.
void VLOSCServer::adopt(VLOSCHostFilterEntry& entry) {
  entry.setDelegate(mSelf);
  const std::lock_guard lock(mHostsMutex);
  mKnown.insert(entry.address());
  if (entry.enabled()) {
    mHostFilterHash.insert(entry.address());
  }
}

void VLOSCServer::release(VLOSCHostFilterEntry& entry) {
  entry.setDelegate({});
  const std::lock_guard lock(mHostsMutex);
  mKnown.erase(entry.address());
  mHostFilterHash.erase(entry.address());
}

std::shared_ptr<VLOSCHostFilterEntry> VLOSCServer::objectInHostFilterAtIndex(
    std::size_t index) const {
  KV_REQUIRE_PARAMETER(index < mHostFilter.size(), "index");
  return mHostFilter[index];
}

void VLOSCServer::addHostFilterObject(const std::shared_ptr<VLOSCHostFilterEntry>& entry) {
  insertHostFilter({entry}, {mHostFilter.size()});
}

void VLOSCServer::insertHostFilter(const Entries& entries, const std::set<std::size_t>& indexes) {
  KV_REQUIRE_PARAMETER(entries.size() == indexes.size() &&
                           std::find(entries.begin(), entries.end(), nullptr) == entries.end(),
                       "entries");
  KV_REQUIRE_PARAMETER(indexes.empty() || *indexes.rbegin() < mHostFilter.size() + entries.size(),
                       "indexes");
  const KVAnnouncement announcement(*this, "hostFilter");
  auto entry = entries.begin();
  for (const std::size_t index : indexes) {
    adopt(**entry);
    mHostFilter.insert(std::next(mHostFilter.begin(), static_cast<std::ptrdiff_t>(index)),
                       *entry++);
  }
}

void VLOSCServer::removeHostFilterObject(const std::shared_ptr<VLOSCHostFilterEntry>& entry) {
  const auto found = std::find(mHostFilter.begin(), mHostFilter.end(), entry);
  if (found != mHostFilter.end()) {
    removeHostFilterAtIndexes(
        {static_cast<std::size_t>(std::distance(mHostFilter.begin(), found))});
  }
}

void VLOSCServer::removeHostFilterAtIndexes(const std::set<std::size_t>& indexes) {
  KV_REQUIRE_PARAMETER(indexes.empty() || *indexes.rbegin() < mHostFilter.size(), "indexes");
  const KVAnnouncement announcement(*this, "hostFilter");
  for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
    const auto entry = std::next(mHostFilter.begin(), static_cast<std::ptrdiff_t>(*index));
    release(**entry);
    mHostFilter.erase(entry);
  }
}

// --- settings ---

Expected<std::shared_ptr<VLOSCServerSettings>> VLOSCServer::settingsDictionary() const {
  store::KeyedArchiver archiver;
  Entries lasting;
  std::copy_if(mHostFilter.begin(), mHostFilter.end(), std::back_inserter(lasting),
               [](const auto& entry) { return !entry->isForThisRun(); });
  archiver.encodeArray(lasting, kHostsKey);
  const auto document = archiver.data();
  if (!document) {
    return tl::unexpected(document.error());
  }
  const NextStart next = nextStart();
  auto settings = std::make_shared<VLOSCServerSettings>();
  settings->running = next.running;
  settings->port = next.port;
  settings->hostFilter.assign(document->begin(), document->end());
  settings->filterMode = static_cast<std::uint32_t>(filterMode());
  return settings;
}

GCDAsyncUdpSocketResult VLOSCServer::loadSettingsDictionary(const VLOSCServerSettings& settings) {
  auto entries = unarchiveHosts(settings.hostFilter);
  if (!entries) {
    return failure(GCDAsyncUdpSocketError::other(entries.error().text));
  }
  std::erase_if(*entries, [](const auto& entry) { return entry == nullptr || !entry->enabled(); });
  {
    const std::lock_guard lock(mHostsMutex);
    mHostFilterHash.clear();
  }
  for (const auto& entry : *entries) {
    entry->setDelegate(mSelf);
    hostFilterEntryChangedEnabled(*entry, entry->enabled());
  }
  mHost.mainQueue().async(mSelf.job([entries = *std::move(entries)](VLOSCServer& self) {
    const KVAnnouncement announcement(self, "hostFilter");
    for (const auto& replaced : self.mHostFilter) {
      replaced->setDelegate({});  // its ticks let no host in any more
    }
    self.mHostFilter = entries;
    const std::lock_guard lock(self.mHostsMutex);
    self.mKnown = {self.mRefused.begin(), self.mRefused.end()};
  }));
  // Does not restore the filter mode: admitting every host is for one run only.
  return settings.running ? startUdPServerAtPort(settings.port) : GCDAsyncUdpSocketResult();
}

// --- commands ---

void VLOSCServer::commandFromAddressChangePlaybackStatus(const SocketAddress&, bool play) {
  if (const auto delegate = mDelegate.lock()) {
    play ? delegate->play(*this) : delegate->stop(*this);
  }
}

void VLOSCServer::commandFromAddressChangePlaybackSpeed(const SocketAddress&, float speed) {
  if (const auto delegate = mDelegate.lock()) {
    VLOSCClientDispatcher::sharedDispatcher().willTakeSpeed(speed);
    delegate->setPlayRate(speed);
  }
}

void VLOSCServer::commandFromAddressChangePrerollStatus(const SocketAddress&, bool preroll) {
  VLOSCClientDispatcher::sharedDispatcher().willTakePreroll(preroll);
  VLClock::sharedClock().setPreroll(preroll);
}

void VLOSCServer::commandFromAddressChangeArmed(const SocketAddress&, bool armed) {
  VLOSCClientDispatcher::sharedDispatcher().willTakeArm(armed);
  VLClock& clock = VLClock::sharedClock();
  armed ? clock.arm() : clock.disarm();
}

void VLOSCServer::commandFromAddressGotoMarker(const SocketAddress&, std::int32_t marker) {
  if (const auto delegate = mDelegate.lock()) {
    if (marker == 1) {
      delegate->gotoNextMarker();
    } else if (marker == -1) {
      delegate->gotoPrevMarker();
    }
  }
}

void VLOSCServer::addMarkerCommandFromAddress(const SocketAddress&) {
  if (const auto delegate = mDelegate.lock()) {
    delegate->addMarker(*this);
  }
}

}  // namespace velor
