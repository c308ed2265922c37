// SPDX-License-Identifier: MIT
#include "Velor/devices/VLDeviceManager.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <mutex>
#include <string>
#include <unordered_set>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "Kv-Appkit/KVRandom.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/devices/VLMIDIEndpointDevice.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::array<KVDependency, 2> kDependencies{
    {{"state", "destinations"}, {"state", "devices"}}};

std::string displayName(const KVMIDIEndpoint& endpoint) {
  return endpoint.displayName().value_or("(null)");
}

// None for an endpoint that disappeared before its id was first read.
std::optional<midi::MIDIUniqueID> idOf(const KVMIDIEndpoint& endpoint) {
  try {
    return endpoint.uniqueID();
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());
    return std::nullopt;
  }
}

// A destination that is present takes over the keys of a later version from its stored self.
void takeRemainders(VLTimecodeDestinationDevice& present,
                    const VLTimecodeDestinationDevice& stored) {
  present.takeRemainder(stored);
  if (const auto device = present.device(), other = stored.device();
      device != nullptr && other != nullptr) {
    device->takeRemainder(*other);
  }
  if (const auto endpoint = present.midiEndpoint(), other = stored.midiEndpoint();
      endpoint != nullptr && other != nullptr) {
    endpoint->takeRemainder(*other);
  }
}

std::optional<midi::MIDIUniqueID> idOf(const VLDevice& device) {
  const auto endpoint = device.midiEndpoint();
  return endpoint != nullptr ? idOf(*endpoint) : std::nullopt;
}

// Two endpoints are equal when their hashes are.
using Hashes = std::unordered_set<std::uint64_t>;

}  // namespace

VLDeviceManager& VLDeviceManager::sharedManager() {
  return KVShared<VLDeviceManager>::instance();
}

VLDeviceManager::VLDeviceManager()
    : KVObservable(kDependencies),
      mCore(KVMIDICore::sharedCore()),
      mClock(VLClock::sharedClock()),
      mSelf(this) {
  for (const auto& endpoint : mCore.destinations()) {
    mDestinations.push_back(wrap(endpoint));
    VELOR_LOG_INFO("add destination device %s", displayName(*endpoint).c_str());
  }
  mObserver = KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [this](const KVNotification&) { destinationsChanged(); });
}

VLDeviceManager::~VLDeviceManager() = default;

VLDeviceManager::Destinations VLDeviceManager::destinations() const {
  const std::lock_guard lock(mLock);
  return mDestinations;
}

VLDeviceManager::Devices VLDeviceManager::devices() const {
  const std::lock_guard lock(mLock);
  return mDevices;
}

std::shared_ptr<VLTimecodeDestinationDevice> VLDeviceManager::wrap(
    std::shared_ptr<KVMIDIEndpoint> endpoint) {
  idOf(*endpoint);  // caches the id while the endpoint exists
  return VLTimecodeDestinationDevice::deviceWithDevice(
      VLMIDIEndpointDevice::deviceWithMIDIEndpoint(std::move(endpoint)), mSelf);
}

// --- following the system ---

std::shared_ptr<VLTimecodeDestinationDevice> VLDeviceManager::destinationWithEndpoint(
    const std::shared_ptr<KVMIDIEndpoint>& endpoint) const {
  if (endpoint == nullptr) {
    return nullptr;
  }
  const std::lock_guard lock(mLock);
  for (const auto& destination : mDestinations) {
    if (destination->type() == kVLDeviceTypeMIDI) {
      const auto candidate = destination->midiEndpoint();
      if (candidate != nullptr && candidate->isEqual(*endpoint)) {
        return destination;
      }
    }
  }
  return nullptr;
}

void VLDeviceManager::destinationsChanged() {
  const std::lock_guard lock(mLock);
  const KVMIDICore::Endpoints present = mCore.destinations();
  removeVanished(present);
  addAppeared(present);
}

void VLDeviceManager::removeVanished(const KVMIDICore::Endpoints& present) {
  Hashes presentOnes;
  for (const auto& endpoint : present) {
    presentOnes.insert(endpoint->hash());
  }
  Destinations vanished;
  for (const auto& destination : mDestinations) {
    const auto endpoint = destination->midiEndpoint();
    if (destination->type() == kVLDeviceTypeMIDI && endpoint != nullptr &&
        !presentOnes.contains(endpoint->hash())) {
      VELOR_LOG_INFO("will remove %s", destination->description().c_str());
      vanished.push_back(destination);
    }
  }
  if (vanished.empty()) {
    return;
  }
  const KVAnnouncement announcement(*this, "destinations");
  for (const auto& destination : vanished) {
    std::erase(mDestinations, destination);
    if (destination->enable()) {
      const auto endpoint = destination->midiEndpoint();
      mClock.removeMTCDestination(endpoint);
      // A media window's input is switched on whenever it appears.
      if (const auto id = idOf(*endpoint); id && *id != kMediaPlaybackUniqueID) {
        mEnabledWhenBack.insert(*id);
      }
    }
  }
}

void VLDeviceManager::addAppeared(const KVMIDICore::Endpoints& present) {
  Hashes known;
  for (const auto& destination : mDestinations) {
    const auto endpoint = destination->midiEndpoint();
    if (destination->type() == kVLDeviceTypeMIDI && endpoint != nullptr) {
      known.insert(endpoint->hash());
    }
  }
  KVMIDICore::Endpoints appeared;
  std::copy_if(present.begin(), present.end(), std::back_inserter(appeared),
               [&known](const auto& endpoint) { return !known.contains(endpoint->hash()); });
  if (appeared.empty()) {
    return;
  }
  const KVAnnouncement announcement(*this, "destinations");
  for (const auto& endpoint : appeared) {
    const auto destination = wrap(endpoint);
    mDestinations.push_back(destination);
    VELOR_LOG_INFO("added device with MIDI Endpoint %s", displayName(*endpoint).c_str());
    const auto id = idOf(*endpoint);
    if (id && mEnabledWhenBack.erase(*id) > 0) {
      if (mTemporarySwitches.contains(*id)) {
        enableTemporarily(*destination);
      } else {
        destination->setEnable(true);
      }
    }
    if (id == kMediaPlaybackUniqueID && !_inStateRestauration) {
      host::current().mainQueue().async([weak = std::weak_ptr(destination)] {
        if (const auto strong = weak.lock()) {
          strong->setEnable(true);
        }
      });
    }
  }
}

bool VLDeviceManager::isListed(const VLTimecodeDestinationDevice& device) const {
  const auto isIt = [&device](const auto& member) { return member.get() == &device; };
  return std::any_of(mDestinations.begin(), mDestinations.end(), isIt) ||
         std::any_of(mDevices.begin(), mDevices.end(), isIt);
}

void VLDeviceManager::deviceDidEnableTransmit(VLTimecodeDestinationDevice& device, bool enable) {
  VELOR_LOG_INFO("%s did %sable transmit", device.description().c_str(), enable ? "en" : "dis");
  const std::lock_guard lock(mLock);
  const KVAnnouncement announcement(*this, "state");
  const auto inner = device.device();
  const auto endpoint = inner != nullptr ? inner->midiEndpoint() : nullptr;
  if (endpoint == nullptr) {
    VELOR_LOG_ERROR("no endpoint for device %s", device.description().c_str());
    return;
  }
  const auto id = idOf(*endpoint);
  if (id) {
    mTemporarySwitches.erase(*id);
  }
  if (!enable && id) {
    mEnabledWhenBack.erase(*id);
  }
  if (!isListed(device)) {
    // A caller has kept a device whose endpoint has disappeared. The clock cannot send there,
    // and a device that has appeared since has its own switch.
    if (enable && id && destinationWithEndpoint(endpoint) == nullptr) {
      mEnabledWhenBack.insert(*id);
    }
    return;
  }
  if (enable) {
    mClock.addMTCDestination(endpoint);
  } else {
    mClock.removeMTCDestination(endpoint);
  }
}

// --- the user's devices ---

// Restored devices keep their names, and two of one name could not be told apart.
std::string VLDeviceManager::nextName(const std::string& kind, unsigned& count) const {
  std::string name;
  do {
    name = kind + std::to_string(++count);
  } while (std::any_of(mDevices.begin(), mDevices.end(),
                       [&name](const auto& device) { return device->name() == name; }));
  return name;
}

void VLDeviceManager::makeTemporary(const VLDevice& device) {
  const std::lock_guard lock(mLock);
  if (const auto id = idOf(device)) {
    mTemporaryDevices.insert(*id);
  }
}

void VLDeviceManager::enableTemporarily(VLTimecodeDestinationDevice& destination) {
  const std::lock_guard lock(mLock);
  if (destination.enable()) {
    return;
  }
  destination.setEnable(true);
  if (const auto id = idOf(destination)) {
    mTemporarySwitches.insert(*id);
  }
}

void VLDeviceManager::observeEdits() {
  mEdits.clear();
  for (const auto& device : mDevices) {
    auto tokens = device->observeEdits(
        [this](const auto&) { const KVAnnouncement announcement(*this, "state"); });
    std::move(tokens.begin(), tokens.end(), std::back_inserter(mEdits));
  }
}

Expected<> VLDeviceManager::checkDeviceCount(std::size_t count) {
  if (count > kMostDevices) {
    return failure(std::to_string(count) + " devices; at most " + std::to_string(kMostDevices) +
                   " are possible");
  }
  return {};
}

void VLDeviceManager::requireRoomForOne() const {
  if (const auto room = checkDeviceCount(mDevices.size() + 1); !room) {
    throw KVException(kServiceExceptionName, room.error().text);
  }
}

std::shared_ptr<VLLTCGeneratorDevice> VLDeviceManager::createGenerator() {
  const std::lock_guard lock(mLock);
  requireRoomForOne();
  const std::string name = nextName("LTC Generator ", mGenerators);
  VELOR_LOG_INFO("creating LTC Generator...");
  auto device = VLLTCGeneratorDevice::initWithMIDIClient(mCore.defaultClient(), name);
  device->setDelegate(mSelf);
  const KVAnnouncement announcement(*this, "devices");
  mDevices.push_back(device);
  observeEdits();
  return device;
}

std::shared_ptr<VLLTCReaderDevice> VLDeviceManager::createrReader() {
  const std::lock_guard lock(mLock);
  requireRoomForOne();
  const std::string name = nextName("LTC Reader ", mReaders);
  const auto endpoint = std::make_shared<KVMIDIEndpoint>(
      mCore.createSource(mCore.defaultClient(), name, static_cast<midi::MIDIUniqueID>(KVRandom())));
  auto device = VLLTCReaderDevice::initWithEndpoint(endpoint);
  const KVAnnouncement announcement(*this, "devices");
  mDevices.push_back(device);
  observeEdits();
  return device;
}

void VLDeviceManager::removeDevicesAtIndexes(const std::set<std::size_t>& indexes) {
  const std::lock_guard lock(mLock);
  KV_REQUIRE_PARAMETER(indexes.empty() || *indexes.rbegin() < mDevices.size(), "indexes");
  Devices removed;
  for (const std::size_t index : indexes) {
    removed.push_back(mDevices[index]);
  }
  {
    const KVAnnouncement announcement(*this, "destinations");
    for (const auto& device : removed) {
      if (const auto endpoint = device->midiEndpoint()) {
        if (const auto destination = destinationWithEndpoint(endpoint)) {
          std::erase(mDestinations, destination);
        }
        mClock.removeMTCDestination(endpoint);
      }
      device->destroy();
      std::erase_if(mDestinations, [&device](const auto& member) { return member == device; });
    }
  }
  const KVAnnouncement announcement(*this, "devices");
  for (const auto& device : removed) {
    std::erase(mDevices, device);
  }
  observeEdits();
}

void VLDeviceManager::removeMakersOfEndpoints() {
  std::set<std::size_t> indexes;
  for (std::size_t i = 0; i < mDevices.size(); ++i) {
    if (mDevices[i]->makesItsEndpoint()) {
      indexes.insert(i);
    }
  }
  if (!indexes.empty()) {
    removeDevicesAtIndexes(indexes);
  }
}

// --- state ---

void VLDeviceManager::encodeState(store::KeyedArchiver& coder) const {
  const std::lock_guard lock(mLock);
  const auto isIn = [](const std::set<midi::MIDIUniqueID>& ids, const VLDevice& device) {
    const auto id = ids.empty() ? std::nullopt : idOf(device);
    return id && ids.contains(*id);
  };
  const auto isOfTemporaryDevice = [&](const auto& each) { return isIn(mTemporaryDevices, *each); };
  Devices devices = mDevices;
  std::erase_if(devices, isOfTemporaryDevice);
  Destinations destinations = mDestinations;
  std::erase_if(destinations, isOfTemporaryDevice);
  for (auto& destination : destinations) {
    if (isIn(mTemporarySwitches, *destination)) {
      const auto off = VLTimecodeDestinationDevice::deviceWithDevice(destination->device(), {});
      off->takeRemainder(*destination);
      destination = off;
    }
  }
  coder.encodeArray(devices, kDevicesKey);
  coder.encodeArray(destinations, kDestinationsKey);
}

Expected<> VLDeviceManager::decodeState(store::KeyedUnarchiver& coder) {
  const std::lock_guard lock(mLock);
  _inStateRestauration = true;
  Expected<> restored;
  try {
    restoreDevices(coder);
    restoreDestinations(coder);
  } catch (const KVException& exception) {
    restored = failure(exception.what());
  } catch (...) {
    _inStateRestauration = false;
    throw;
  }
  if (auto values = coder.check(); !values) {
    restored = std::move(values);
  }
  _inStateRestauration = false;
  observeEdits();
  if (!restored) {
    VELOR_LOG_ERROR("exception decoding state of device manager: %s",
                    restored.error().text.c_str());
  }
  return restored;
}

void VLDeviceManager::restoreDevices(store::KeyedUnarchiver& coder) {
  // All are read before any running device is touched.
  const auto stored = coder.decodeArray<VLDevice>(kDevicesKey);
  if (const auto room = checkDeviceCount(stored ? stored->size() : 0); !room) {
    coder.refuse(kDevicesKey, room.error().text);
  }
  if (coder.failed()) {
    return;
  }
  if (stored) {
    // Before the stored devices open, which then get the same ids.
    removeMakersOfEndpoints();
    const KVAnnouncement announcement(*this, "devices");
    mDevices.clear();
    for (const auto& device : *stored) {
      if (device != nullptr) {
        device->open();
      }
      // A device without an endpoint in the system can do nothing.
      if (device != nullptr && device->midiEndpoint() != nullptr) {
        mDevices.push_back(device);
      }
    }
  }
  destinationsChanged();
  for (const auto& device : mDevices) {
    if (const auto destination = std::dynamic_pointer_cast<VLTimecodeDestinationDevice>(device)) {
      destination->setDelegate(mSelf);
    }
  }
}

void VLDeviceManager::restoreDestinations(store::KeyedUnarchiver& coder) {
  if (coder.failed()) {
    return;
  }
  const KVAnnouncement announcement(*this, "destinations");
  const auto stored = coder.decodeArray<VLTimecodeDestinationDevice>(kDestinationsKey);
  if (!stored) {
    return;
  }
  for (const auto& destination : *stored) {
    const auto endpoint = destination != nullptr ? destination->midiEndpoint() : nullptr;
    if (endpoint == nullptr) {
      continue;  // not there now
    }
    if (const auto present = destinationWithEndpoint(endpoint)) {
      takeRemainders(*present, *destination);
      if (destination->enable()) {
        present->setEnable(true);
      }
      continue;
    }
    // The service knows the endpoint; the core's list does not yet.
    destination->setDelegate(mSelf);
    mDestinations.push_back(destination);
    deviceDidEnableTransmit(*destination, destination->enable());
  }
}

}  // namespace velor
