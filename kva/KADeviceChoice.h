// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "kva/KAHALAudioDevice.h"

namespace velor {

/// Posted on the main queue when a device that was chosen goes missing, or returns; the
/// object is a std::string, a sentence for people.
inline constexpr const char* KADeviceChoiceNotification = "KADeviceChoiceNotification";

/// A device that was chosen, over its absence: it is remembered by its UID. While it is
/// missing from the start another stands in, the one that does already or else the default
/// one, or none where there is none. When it goes after it was in use, nothing stands in:
/// what is meant for one device must not come out of another in the middle of a run. Where
/// nothing was chosen, the first default device is.
///
/// Main queue. Only operations that say so raise: other failures are logged.
class KADeviceChoice {
 public:
  using Device = std::shared_ptr<KAHALAudioDevice>;
  /// Takes the device into use. KVException where that fails, with nothing in use.
  using Use = std::function<void(const Device& device)>;

  /// `scope`: of input or output, in which the device needs channels. `doing`: the words
  /// of messages for what LTC does with it, such as "plays on".
  KADeviceChoice(audio::AudioDirection scope, const char* doing) noexcept
      : mScope(scope), mDoing(doing) {}

  /// By the UID, of a device that may be missing; empty for none.
  void choose(std::string uid);
  const std::string& chosenUID() const noexcept { return mChosenUID; }
  /// It may be missing now, and is used again when it returns.
  bool isChosenInUse() const noexcept { return !mUsedUID.empty() && mUsedUID == mChosenUID; }

  /// Chooses the device and takes it into use; null is none, and `use` is called for it, too.
  /// Raises what `use` raises, with none in use then, and before that KVException where
  /// the device is unknown.
  void take(const Device& device, const Use& use);

  /// Whether another device, or another than now, is to be used. Notes what has become of
  /// the chosen one.
  bool needsSettling();
  /// Whether the device in use is there.
  bool isUsedPresent() const { return find(mUsedUID) != nullptr; }

  /// Takes the first into use that is there and can be. False when none can.
  bool settle(const Use& use);

 private:
  Device find(const std::string& uid) const;
  Device defaultDevice() const;
  bool tryDevice(const Device& device, const Use& use);
  void tell();

  const audio::AudioDirection mScope;
  const char* const mDoing;
  std::string mChosenUID;
  std::string mUsedUID;  // of the device in use; empty while there is none
  bool mWasChosenUsed = false;
  std::string mTold;  // the last reported sentence about its absence
};

}  // namespace velor
