// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/LowPassUnit.h"

#include <cmath>
#include <numbers>

namespace velor::audio {
namespace {

// Far below what 32-bit samples can carry. What dies away stops here, before its
// numbers become so small that the processor is slow with them.
constexpr double kSilence = 1e-30;

double audible(double value) noexcept {
  return std::fabs(value) < kSilence ? 0.0 : value;
}

}  // namespace

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
  const double rate = outputFormat().mSampleRate;
  if (rate <= 2 * mCutoff) {
    mCoefficients.store({});
    return;
  }
  const double angle = 2 * std::numbers::pi * mCutoff / rate;
  const double alpha = std::sin(angle) / (2 * mResonance);
  const double cosine = std::cos(angle);
  const double a0 = 1 + alpha;
  mCoefficients.store({.b0 = (1 - cosine) / 2 / a0,
                       .b1 = (1 - cosine) / a0,
                       .b2 = (1 - cosine) / 2 / a0,
                       .a1 = -2 * cosine / a0,
                       .a2 = (1 - alpha) / a0});
}

OSStatus LowPassUnit::render(const host::RealtimeContext& realtime,
                             AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                             std::uint32_t, std::uint32_t frames, AudioBufferList& data) noexcept {
  const OSStatus status = input().pull(realtime, flags, time, frames, data);
  if (mResetPending.exchange(false, std::memory_order_relaxed)) {
    mState.fill({});
  }
  if (status != 0) {
    return status;
  }
  const Coefficients c = mCoefficients.load();
  for (std::uint32_t channel = 0; channel < data.mNumberBuffers; ++channel) {
    // Transposed direct form II.
    float* samples = data.mBuffers[channel].mData;
    auto [first, second] = mState[channel];
    for (std::uint32_t i = 0; i < frames; ++i) {
      const double in = samples[i];
      const double out = c.b0 * in + first;
      first = c.b1 * in - c.a1 * out + second;
      second = c.b2 * in - c.a2 * out;
      samples[i] = static_cast<float>(out);
    }
    mState[channel] = {audible(first), audible(second)};
  }
  return 0;
}

}  // namespace velor::audio
