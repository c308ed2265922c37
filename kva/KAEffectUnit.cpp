// SPDX-License-Identifier: MIT
#include "kva/KAEffectUnit.h"

#include <cmath>

namespace velor {

using audio::OSStatus;

OSStatus KAEffectUnit::set(const Address& address, const KAPropertyValue& value) {
  const bool isInput = address.scope == KAUnitScope::input;
  if (const auto* callback = std::get_if<audio::AURenderCallbackStruct>(&value);
      callback != nullptr && address.property == KAUnitProperty::renderCallback && isInput) {
    mCallback.store(*callback);
    return 0;
  }
  audio::AudioStreamBasicDescription& format = isInput ? mInput : mOutput;
  audio::AudioStreamBasicDescription wanted = format;
  if (const auto* description = std::get_if<audio::AudioStreamBasicDescription>(&value);
      description != nullptr && address.property == KAUnitProperty::streamFormat) {
    wanted = *description;
  } else if (const auto* rate = std::get_if<double>(&value);
             rate != nullptr && address.property == KAUnitProperty::sampleRate) {
    wanted.mSampleRate = *rate;
  } else {
    return audio::kAudioUnitErr_InvalidPropertyValue;
  }
  if (isInitialized()) {
    return audio::kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (!KAIsStreamFormat(wanted)) {
    return audio::kAudioUnitErr_FormatNotSupported;
  }
  format = wanted;
  mOutputIsSet = mOutputIsSet || !isInput;
  return 0;
}

OSStatus KAEffectUnit::get(const Address& address, KAPropertyValue& value) const {
  if (address.element != 0) {
    return audio::kAudioUnitErr_InvalidElement;
  }
  const auto& format = address.scope == KAUnitScope::input ? mInput : mOutput;
  switch (address.property) {
    case KAUnitProperty::streamFormat:
      value = format;
      return 0;
    case KAUnitProperty::sampleRate:
      value = format.mSampleRate;
      return 0;
    case KAUnitProperty::maximumFramesPerSlice:
      value = audio::kMaxFramesPerSlice;
      return 0;
    default:
      return audio::kAudioUnitErr_InvalidProperty;
  }
}

bool KAEffectUnit::isWriteable(const Address& address) const {
  return address.element == 0 && address.scope != KAUnitScope::global &&
         address.property != KAUnitProperty::maximumFramesPerSlice;
}

OSStatus KAEffectUnit::applyParameter(KAUnitParameter parameter, float value) {
  if (!mIsLowPass) {
    return audio::kAudioUnitErr_InvalidParameter;
  }
  if (!std::isfinite(value) || value <= 0) {
    return audio::kAudioUnitErr_InvalidPropertyValue;
  }
  (parameter == KAUnitParameter::lowPassCutoff ? mCutoff : mResonance) = static_cast<double>(value);
  update();
  return 0;
}

OSStatus KAEffectUnit::prepare() {
  if (source() != nullptr) {
    mInput = source()->outputFormat();
    mOutput = mOutputIsSet ? mOutput : mInput;
  }
  if (mInput.mSampleRate != mOutput.mSampleRate ||
      mInput.mChannelsPerFrame != mOutput.mChannelsPerFrame) {
    return audio::kAudioUnitErr_FormatNotSupported;
  }
  update();
  return 0;
}

void KAEffectUnit::update() {
  mCoefficients.store(audio::LowPass::coefficients(mOutput.mSampleRate, mCutoff, mResonance));
}

OSStatus KAEffectUnit::render(const host::RealtimeContext& realtime,
                              const audio::AudioTimeStamp& time, std::uint32_t frames,
                              std::span<float* const> channels) noexcept {
  OSStatus status = audio::kAudioUnitErr_NoConnection;
  if (source() != nullptr) {
    status = source()->render(realtime, time, frames, channels);
  } else if (const auto& callback = mCallback.load(); callback.inputProc != nullptr) {
    status = callback.inputProc(realtime, callback.inputProcRefCon, time, frames, channels);
  }
  if (mResetPending.exchange(false, std::memory_order_relaxed)) {
    mFilters.fill({});
  }
  if (status != 0 || !mIsLowPass) {
    return status;
  }
  const audio::LowPass::Coefficients coefficients = mCoefficients.load();
  for (std::size_t channel = 0; channel < channels.size(); ++channel) {
    mFilters[channel].process(coefficients, {channels[channel], frames});
  }
  return 0;
}

}  // namespace velor
