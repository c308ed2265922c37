// SPDX-License-Identifier: MIT
#include "kva/KADefaultOutputUnit.h"

#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {

void KADefaultOutputUnit::start() {
  KACheck("-[KADefaultOutputUnit start]", audio::service().AudioOutputUnitStart(au()));
}

void KADefaultOutputUnit::stop() {
  KACheck("-[KADefaultOutputUnit stop]", audio::service().AudioOutputUnitStop(au()));
}

bool KADefaultOutputUnit::isRunning() const {
  return getPropertyUInt32(audio::kAudioOutputUnitProperty_IsRunning, audio::kAudioUnitScope_Global,
                           0) == 1;
}

double KADefaultOutputUnit::sampleRate() const {
  return getPropertyFloat64(audio::kAudioUnitProperty_SampleRate, audio::kAudioUnitScope_Output, 0);
}

audio::AudioObjectID KADefaultOutputUnit::deviceID() const {
  return getPropertyUInt32(audio::kAudioOutputUnitProperty_CurrentDevice,
                           audio::kAudioUnitScope_Global, 0);
}

}  // namespace velor
