// SPDX-License-Identifier: MIT
#include "kva/KADeviceChoice.h"

#include <utility>

#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "kva/KAHALAudioSystem.h"
#include "platform/host/Log.h"

namespace velor {

// Null also for one that has no channels in the direction, and one that goes meanwhile.
KADeviceChoice::Device KADeviceChoice::find(const std::string& uid) const {
  try {
    auto device = uid.empty() ? nullptr : KAHALAudioSystem::defaultSystem().audioDeviceForUID(uid);
    return device != nullptr && device->numChannelsInScope(mScope) > 0 ? device : nullptr;
  } catch (const KVException&) {
    return nullptr;
  }
}

KADeviceChoice::Device KADeviceChoice::defaultDevice() const {
  try {
    const auto& system = KAHALAudioSystem::defaultSystem();
    return mScope == audio::AudioDirection::input ? system.defaultInputDevice()
                                                  : system.defaultOutputDevice();
  } catch (const KVException&) {
    return nullptr;
  }
}

bool KADeviceChoice::needsSettling() {
  const bool isChosenPresent = find(mChosenUID) != nullptr;
  const bool needs =
      isChosenPresent ? !isChosenInUse() : !mWasChosenUsed && find(mUsedUID) == nullptr;
  if (!needs) {
    tell();
  }
  return needs;
}

void KADeviceChoice::take(const Device& device, const Use& use) {
  choose(device != nullptr ? device->deviceUID() : "");
  mUsedUID.clear();
  use(device);
  mUsedUID = mChosenUID;
  mWasChosenUsed = device != nullptr;
}

bool KADeviceChoice::settle(const Use& use) {
  const std::string before = std::exchange(mUsedUID, {});
  const Device standard = defaultDevice();
  try {
    if (mChosenUID.empty() && standard != nullptr) {
      mChosenUID = standard->deviceUID();
    }
  } catch (const KVException&) {
    // Gone since; the next one that appears is the first.
  }
  bool isUsed = tryDevice(find(mChosenUID), use);
  if (!isUsed && !mWasChosenUsed) {
    isUsed = (before != mChosenUID && tryDevice(find(before), use)) || tryDevice(standard, use);
  }
  mWasChosenUsed = mWasChosenUsed || isChosenInUse();
  tell();
  return isUsed;
}

bool KADeviceChoice::tryDevice(const Device& device, const Use& use) {
  if (device == nullptr) {
    return false;
  }
  try {
    std::string uid = device->deviceUID();
    use(device);
    mUsedUID = std::move(uid);
    return true;
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("an audio device does not take LTC: %s", exception.what());
    return false;
  }
}

void KADeviceChoice::choose(std::string uid) {
  mChosenUID = std::move(uid);
  mWasChosenUsed = false;
  mTold.clear();
}

// Once for each change.
void KADeviceChoice::tell() {
  const std::string device = "audio device '" + mChosenUID + "' is ";
  std::string missing;
  if (!isChosenInUse() || !isUsedPresent()) {
    if (mWasChosenUsed) {
      missing = device + "missing; no LTC until it returns";
    } else if (mUsedUID.empty()) {
      missing = device + "missing and no other is present; no LTC until one appears";
    } else {
      missing = device + "missing; LTC " + mDoing + " '" + mUsedUID + "' until it returns";
    }
  }
  if (missing == mTold) {
    return;
  }
  const std::string news = missing.empty() ? device + "back; LTC " + mDoing + " it again" : missing;
  mTold = missing;
  VELOR_LOG_WARNING("%s", news.c_str());
  KVNotificationCenter::defaultCenter().postOnMainQueue(KADeviceChoiceNotification, news);
}

}  // namespace velor
