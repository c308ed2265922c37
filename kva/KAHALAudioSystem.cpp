// SPDX-License-Identifier: MIT
#include "kva/KAHALAudioSystem.h"

#include <string_view>
#include <utility>

#include "platform/host/Host.h"

namespace velor {

KAHALAudioSystem& KAHALAudioSystem::defaultSystem() {
  return KVShared<KAHALAudioSystem>::instance();
}

KAHALAudioSystem::KAHALAudioSystem() : KAHALAudioObject(audio::kAudioObjectUnknown) {
  audio::service().addListener(*this);
}

KAHALAudioSystem::~KAHALAudioSystem() {
  audio::service().removeListener(*this);
}

void KAHALAudioSystem::deviceChanged(const audio::AudioDeviceChange& change) {
  std::vector<std::string_view> keys;
  if (change.presence) {
    keys.emplace_back("audioDevices");
  }
  if (change.channels) {
    keys.emplace_back("deviceChannels");
  }
  if (change.defaultInput) {
    keys.emplace_back("defaultInputDevice");
  }
  if (change.defaultOutput) {
    keys.emplace_back("defaultOutputDevice");
  }
  announce(std::move(keys));
}

void KAHALAudioSystem::serverChanged() {
  announce({"serverStatus"});
}

void KAHALAudioSystem::announce(std::vector<std::string_view> keys) {
  host::current().mainQueue().async([weak = std::weak_ptr(mSelf), keys = std::move(keys)] {
    for (const std::string_view key : keys) {
      if (const auto self = weak.lock()) {
        (*self)->willChangeValueForKey(key);
        (*self)->didChangeValueForKey(key);
      }
    }
  });
}

KAHALAudioSystem::Devices KAHALAudioSystem::audioDevices() const {
  Devices devices;
  for (const audio::AudioObjectID id : audio::service().devices()) {
    devices.push_back(KAHALAudioDevice::initWithAudioObjectID(id));
  }
  return devices;
}

KAHALAudioSystem::Devices KAHALAudioSystem::devicesWithChannels(audio::AudioDirection scope) const {
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
  return devicesWithChannels(audio::AudioDirection::input);
}

KAHALAudioSystem::Devices KAHALAudioSystem::devicesWithOutputs() const {
  return devicesWithChannels(audio::AudioDirection::output);
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::audioDeviceForUID(
    const std::string& uid) const {
  return KAHALAudioDevice::initWithAudioObjectID(audio::service().deviceForUID(uid));
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
  return KAHALAudioDevice::initWithAudioObjectID(
      audio::service().defaultDevice(audio::AudioDirection::input));
}

std::shared_ptr<KAHALAudioDevice> KAHALAudioSystem::defaultOutputDevice() const {
  return KAHALAudioDevice::initWithAudioObjectID(
      audio::service().defaultDevice(audio::AudioDirection::output));
}

}  // namespace velor
