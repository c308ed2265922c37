// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/EffectUnit.h"

namespace velor::audio {

AudioStreamBasicDescription* EffectUnit::format(const UnitPropertyAddress& address) {
  if (address.element != 0) {
    return nullptr;
  }
  switch (address.scope) {
    case kAudioUnitScope_Input:
      return &mInput;
    case kAudioUnitScope_Output:
      return &mOutput;
    default:
      return nullptr;
  }
}

OSStatus EffectUnit::setFormat(AudioStreamBasicDescription& format,
                               const AudioStreamBasicDescription& value) {
  if (isInitialized()) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (!isStreamFormat(value)) {
    return kAudioUnitErr_FormatNotSupported;
  }
  format = value;
  mOutputIsSet |= &format == &mOutput;
  return 0;
}

OSStatus EffectUnit::setProperty(const UnitPropertyAddress& address, const void* data,
                                 std::uint32_t size) {
  switch (address.property) {
    case kAudioUnitProperty_StreamFormat:
    case kAudioUnitProperty_SampleRate: {
      AudioStreamBasicDescription* target = format(address);
      if (target == nullptr) {
        return kAudioUnitErr_InvalidScope;
      }
      if (address.property == kAudioUnitProperty_SampleRate) {
        const auto rate = take<double>(data, size);
        return rate ? setFormat(*target, streamFormat(*rate, target->mChannelsPerFrame))
                    : kAudioUnitErr_InvalidPropertyValue;
      }
      const auto value = take<AudioStreamBasicDescription>(data, size);
      return value ? setFormat(*target, *value) : kAudioUnitErr_InvalidPropertyValue;
    }
    case kAudioUnitProperty_SetRenderCallback: {
      if (address.scope != kAudioUnitScope_Input) {
        return kAudioUnitErr_InvalidScope;
      }
      if (address.element != 0) {
        return kAudioUnitErr_InvalidElement;
      }
      const auto callback = take<AURenderCallbackStruct>(data, size);
      if (!callback) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      mInputBus.setCallback(*callback);
      return 0;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice:
      return kAudioUnitErr_PropertyNotWritable;
    default:
      return kAudioUnitErr_InvalidProperty;
  }
}

OSStatus EffectUnit::getProperty(const UnitPropertyAddress& address,
                                 std::vector<std::byte>& value) {
  switch (address.property) {
    case kAudioUnitProperty_StreamFormat:
    case kAudioUnitProperty_SampleRate: {
      const AudioStreamBasicDescription* source = format(address);
      if (source == nullptr) {
        return kAudioUnitErr_InvalidScope;
      }
      if (address.property == kAudioUnitProperty_SampleRate) {
        put(source->mSampleRate, value);
      } else {
        put(*source, value);
      }
      return 0;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice:
      put(kMaxFramesPerSlice, value);
      return 0;
    default:
      return kAudioUnitErr_InvalidProperty;
  }
}

bool EffectUnit::isWritable(const UnitPropertyAddress& address) {
  return address.property != kAudioUnitProperty_MaximumFramesPerSlice;
}

OSStatus EffectUnit::connect(RenderUnit& source) {
  if (mSource != nullptr && mSource != &source) {
    return kAUGraphErr_InvalidConnection;
  }
  mSource = &source;
  mInputBus.connect(source);
  return 0;
}

OSStatus EffectUnit::initialize() {
  if (mSource != nullptr) {
    mInput = mSource->outputFormat();
    mOutput = mOutputIsSet ? mOutput : mInput;
  }
  if (mInput.mSampleRate != mOutput.mSampleRate ||
      mInput.mChannelsPerFrame != mOutput.mChannelsPerFrame) {
    return kAudioUnitErr_FormatNotSupported;
  }
  return RenderUnit::initialize();
}

}  // namespace velor::audio
