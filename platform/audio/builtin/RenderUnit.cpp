// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/RenderUnit.h"

#include <algorithm>

namespace velor::audio {

OSStatus RenderUnit::setParameter(AudioUnitParameterID, float) {
  return kAudioUnitErr_InvalidParameter;
}

OSStatus RenderUnit::initialize() {
  mOwn.assign(std::size_t{outputFormat().mChannelsPerFrame} * kMaxFramesPerSlice, 0.0F);
  mInitialized = true;
  return 0;
}

OSStatus RenderUnit::connect(RenderUnit&) {
  return kAUGraphErr_InvalidConnection;
}

OSStatus RenderUnit::renderChecked(const host::RealtimeContext& realtime,
                                   AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                                   std::uint32_t bus, std::uint32_t frames,
                                   AudioBufferList* data) noexcept {
  if (!mInitialized) {
    return kAudioUnitErr_Uninitialized;
  }
  if (data == nullptr || data->mNumberBuffers == 0 || data->mNumberBuffers > kMaxChannels) {
    return kAudioUnitErr_InvalidPropertyValue;
  }
  if (frames > kMaxFramesPerSlice) {
    return kAudioUnitErr_TooManyFramesToProcess;
  }
  const auto bytes = static_cast<std::uint32_t>(frames * sizeof(float));
  for (std::uint32_t i = 0; i < data->mNumberBuffers; ++i) {
    AudioBuffer& buffer = data->mBuffers[i];
    if (buffer.mData == nullptr) {
      if (bus != 0) {
        continue;  // it gives what came in as it lies
      }
      if (std::size_t{i} * kMaxFramesPerSlice >= mOwn.size()) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      buffer.mData = &mOwn[std::size_t{i} * kMaxFramesPerSlice];
    } else if (buffer.mDataByteSize < bytes) {
      return kAudioUnitErr_TooManyFramesToProcess;
    }
    buffer.mDataByteSize = bytes;
  }
  return render(realtime, flags, time, bus, frames, *data);
}

}  // namespace velor::audio
