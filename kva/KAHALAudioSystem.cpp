// SPDX-License-Identifier: MIT
#include "kva/KAHALAudioSystem.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace velor {
namespace {

struct Observed {
  audio::AudioObjectPropertySelector selector;
  std::string_view key;
};

constexpr std::array<Observed, 3> kObserved = {{
    {audio::kAudioHardwarePropertyDevices, "audioDevices"},
    {audio::kAudioHardwarePropertyDefaultInputDevice, "defaultInputDevice"},
    {audio::kAudioHardwarePropertyDefaultOutputDevice, "defaultOutputDevice"},
}};

}  // namespace

KAHALAudioSystem& KAHALAudioSystem::defaultSystem() {
  return KVShared<KAHALAudioSystem>::instance();
}

KAHALAudioSystem::KAHALAudioSystem() : KAHALAudioObject(audio::kAudioObjectSystemObject) {
  for (const Observed& row : kObserved) {
    KACheck("-[KAHALAudioSystem init]", audio::service().AudioObjectAddPropertyListener(
                                            objectID(), {row.selector}, &propertyChanged, this));
  }
}

KAHALAudioSystem::~KAHALAudioSystem() {
  for (const Observed& row : kObserved) {
    audio::service().AudioObjectRemovePropertyListener(objectID(), {row.selector}, &propertyChanged,
                                                       this);
  }
}

void KAHALAudioSystem::propertyChanged(audio::AudioObjectID /*object*/,
                                       const audio::AudioObjectPropertyAddress& address,
                                       void* refCon) {
  auto& system = *static_cast<KAHALAudioSystem*>(refCon);
  for (const Observed& row : kObserved) {
    if (row.selector == address.mSelector) {
      system.willChangeValueForKey(row.key);
      system.didChangeValueForKey(row.key);
    }
  }
}

KAHALAudioSystem::Devices KAHALAudioSystem::audioDevices() const {
  Devices devices;
  for (const audio::AudioObjectID id : property<std::vector<std::uint32_t>>(
           "-[KAHALAudioSystem audioDevices]", audio::kAudioHardwarePropertyDevices)) {
    devices.push_back(KAHALAudioDevice::initWithAudioObjectID(id));
  }
  return devices;
}

KAHALAudioSystem::Devices KAHALAudioSystem::devicesWithChannels(
    audio::AudioObjectPropertyScope scope) const {
  Devices devices = audioDevices();
  std::erase_if(devices, [scope](const auto& device) {
    try {
      return device->numChannelsInScope(scope) == 0;
    } catch (const KVException&) {
      return true;  // gone since
    }
  });
  return devices;
}

KAHALAudioSystem::Devices KAHALAudioSystem::devicesWithInputs() const {
  return devicesWithChannels(audio::kAudioObjectPropertyScopeInput);
}

KAHALAudioSystem::Devices KAHALAudioSystem::devicesWithOutputs() const {
  return devicesWithChannels(audio::kAudioObjectPropertyScopeOutput);
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::audioDeviceForUID(
    const std::string& uid) const {
  std::uint32_t id = audio::kAudioObjectUnknown;
  KACheck("-[KAHALAudioSystem audioDeviceForUID:]",
          audio::service().AudioObjectGetPropertyData(
              objectID(), {audio::kAudioHardwarePropertyDeviceForUID}, &id, uid));
  return KAHALAudioDevice::initWithAudioObjectID(id);
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::audioDeviceWithObjectId(
    audio::AudioObjectID wanted) const {
  for (auto& device : audioDevices()) {
    if (device->objectID() == wanted) {
      return device;
    }
  }
  return nullptr;
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::defaultInputDevice() const {
  return KAHALAudioDevice::initWithAudioObjectID(property<std::uint32_t>(
      "-[KAHALAudioSystem defaultInputDevice]", audio::kAudioHardwarePropertyDefaultInputDevice));
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::defaultOutputDevice() const {
  return KAHALAudioDevice::initWithAudioObjectID(property<std::uint32_t>(
      "-[KAHALAudioSystem defaultOutputDevice]", audio::kAudioHardwarePropertyDefaultOutputDevice));
}

}  // namespace velor
