// SPDX-License-Identifier: MIT
#include "kva/KAHALDeviceOutputUnit.h"

#include <cstdint>

#include "Kv-Appkit/KVAssert.h"
#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {
namespace {

audio::AudioUnit newInstance() {
  if (!audio::service().AudioComponentFindNext(KAHALDeviceOutputUnit::componentDescription())) {
    KVAssertionFailed("could not find audio component for KAHALDeviceOutputUnit", __FILE__,
                      __LINE__);
  }
  audio::AudioUnit unit = 0;
  KACheck("-[KAHALDeviceOutputUnit init]",
          audio::service().AudioComponentInstanceNew(KAHALDeviceOutputUnit::componentDescription(),
                                                     &unit));
  return unit;
}

}  // namespace

KAHALDeviceOutputUnit::KAHALDeviceOutputUnit() : KADefaultOutputUnit(newInstance()), mIsOwn(true) {}

KAHALDeviceOutputUnit::~KAHALDeviceOutputUnit() {
  if (mIsOwn) {
    audio::service().AudioComponentInstanceDispose(au());
  }
}

audio::AudioComponentDescription KAHALDeviceOutputUnit::componentDescription() noexcept {
  return audio::kHALOutputComponent;
}

void KAHALDeviceOutputUnit::setDeviceID(audio::AudioObjectID deviceID) {
  setPropertyGlobal(audio::kAudioOutputUnitProperty_CurrentDevice, &deviceID, sizeof deviceID);
}

void KAHALDeviceOutputUnit::enableInput(bool input, bool output) {
  const std::uint32_t inputFlag = input ? 1 : 0;
  const std::uint32_t outputFlag = output ? 1 : 0;
  setProperty(audio::kAudioOutputUnitProperty_EnableIO, audio::kAudioUnitScope_Input, 1, &inputFlag,
              sizeof inputFlag);
  setProperty(audio::kAudioOutputUnitProperty_EnableIO, audio::kAudioUnitScope_Output, 0,
              &outputFlag, sizeof outputFlag);
}

}  // namespace velor
