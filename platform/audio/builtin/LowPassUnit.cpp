// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/LowPassUnit.h"

#include <cmath>

namespace velor::audio {

OSStatus LowPassUnit::setParameter(AudioUnitParameterID parameter, float value) {
  if (parameter != kLowPassParam_CutoffFrequency && parameter != kLowPassParam_Resonance) {
    return kAudioUnitErr_InvalidParameter;
  }
  if (!std::isfinite(value) || value <= 0) {
    return kAudioUnitErr_InvalidPropertyValue;
  }
  (parameter == kLowPassParam_CutoffFrequency ? mCutoff : mResonance) = value;
  update();
  return 0;
}

OSStatus LowPassUnit::initialize() {
  const OSStatus status = EffectUnit::initialize();
  update();
  return status;
}

void LowPassUnit::update() {
  mCoefficients.store(LowPass::coefficients(outputFormat().mSampleRate, mCutoff, mResonance));
}

OSStatus LowPassUnit::render(const host::RealtimeContext& realtime,
                             AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                             std::uint32_t, std::uint32_t frames, AudioBufferList& data) noexcept {
  const OSStatus status = input().pull(realtime, flags, time, frames, data);
  if (mResetPending.exchange(false, std::memory_order_relaxed)) {
    mFilters.fill({});
  }
  if (status != 0) {
    return status;
  }
  const LowPass::Coefficients coefficients = mCoefficients.load();
  for (std::uint32_t channel = 0; channel < data.mNumberBuffers; ++channel) {
    mFilters[channel].process(coefficients, {data.mBuffers[channel].mData, frames});
  }
  return 0;
}

}  // namespace velor::audio
