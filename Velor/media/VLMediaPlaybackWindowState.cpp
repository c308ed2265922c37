// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaPlaybackWindowState.h"

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

std::shared_ptr<VLMediaPlaybackWindowState> VLMediaPlaybackWindowState::initWithCoder(
    store::KeyedUnarchiver& coder) {
  auto state = std::make_shared<VLMediaPlaybackWindowState>();
  state->bookmark = coder.decodeBytes(kBookmarkKey);
  state->startTime = coder.decodeObject<KVSMPTETime>(kStartTimeKey);
  state->audioSumMode = coder.decodeInt32(kAudioSumModeKey).value_or(state->audioSumMode);
  state->controlMasterClock =
      coder.decodeBool(kControlMasterClockKey).value_or(state->controlMasterClock);
  state->online = coder.decodeBool(kOnlineKey).value_or(state->online);
  state->volume = static_cast<float>(
      coder.decodeDouble(kVolumeKey).value_or(static_cast<double>(state->volume)));
  state->adjustSpeed = coder.decodeBool(kAdjustSpeedKey).value_or(state->adjustSpeed);
  return state;
}

void VLMediaPlaybackWindowState::encodeWithCoder(store::KeyedArchiver& coder) const {
  if (bookmark) {
    coder.encodeBytes(*bookmark, kBookmarkKey);
  } else {
    coder.encodeNull(kBookmarkKey);
  }
  coder.encodeObject(startTime, kStartTimeKey);
  coder.encodeInt32(audioSumMode, kAudioSumModeKey);
  coder.encodeBool(controlMasterClock, kControlMasterClockKey);
  coder.encodeBool(online, kOnlineKey);
  coder.encodeDouble(static_cast<double>(volume), kVolumeKey);
  coder.encodeBool(adjustSpeed, kAdjustSpeedKey);
}

}  // namespace velor
