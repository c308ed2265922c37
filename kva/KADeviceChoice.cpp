// SPDX-License-Identifier: MIT
#include "kva/KADeviceChoice.h"

#include <utility>

#include "Kv-Appkit/KVException.h"
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
    return mScope == audio::kAudioObjectPropertyScopeInput ? system.defaultInputDevice()
                                                           : system.defaultOutputDevice();
  } catch (const KVException&) {
    return nullptr;
  }
}

bool KADeviceChoice::isSettled() const {
  const Device chosen = find(mChosenUID);
  return chosen != nullptr ? isChosenInUse() : find(mUsedUID) != nullptr;
}

void KADeviceChoice::take(const Device& device, const Use& use) {
  choose(device != nullptr ? device->deviceUID() : "");
  mUsedUID.clear();
  use(device);
  mUsedUID = mChosenUID;
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
  // Away from the chosen one it stays where it is, as long as it can.
  const bool isUsed = tryDevice(find(mChosenUID), use) ||
                      (before != mChosenUID && tryDevice(find(before), use)) ||
                      tryDevice(standard, use);
  tell(before);
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
  mIsToldAway = false;
}

// Once for each change.
void KADeviceChoice::tell(const std::string& before) {
  const char* chosen = mChosenUID.c_str();
  if (isChosenInUse()) {
    if (std::exchange(mIsToldAway, false)) {
      VELOR_LOG_INFO("audio device '%s' is back, LTC %s it again", chosen, mDoing);
    }
  } else if (!std::exchange(mIsToldAway, true) || mUsedUID != before) {
    if (mUsedUID.empty()) {
      VELOR_LOG_WARNING(
          "audio device '%s' is away, and there is no other: no LTC until one appears", chosen);
    } else {
      VELOR_LOG_WARNING("audio device '%s' is away: LTC %s '%s' until it returns", chosen, mDoing,
                        mUsedUID.c_str());
    }
  }
}

}  // namespace velor
