// SPDX-License-Identifier: MIT
#include "kva/KAHALAudioSystem.h"

#include <string_view>

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
  host::current().mainQueue().async([weak = std::weak_ptr(mSelf), change] {
    if (const auto self = weak.lock()) {
      (*self)->announce(change);
    }
  });
}

void KAHALAudioSystem::announce(const audio::AudioDeviceChange& change) {
  const auto tell = [this](bool hasChanged, std::string_view key) {
    if (hasChanged) {
      willChangeValueForKey(key);
      didChangeValueForKey(key);
    }
  };
  tell(change.presence, "audioDevices");
  tell(change.defaultInput, "defaultInputDevice");
  tell(change.defaultOutput, "defaultOutputDevice");
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
