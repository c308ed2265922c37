// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "kva/KAHALDeviceOutputUnit.h"
#include "platform/audio/AudioService.h"

namespace velor {

/// Hears one channel of a device on the simulated host, where cycles and the test
/// never run at once.
class AudioRecorder {
 public:
  /// `room`: samples between two calls of `drain`.
  AudioRecorder(audio::AudioObjectID device, std::size_t room, std::size_t channel = 0)
      : mChannel(channel), mSamples(room) {
    mUnit.enableInput(true, false);
    mUnit.setDeviceID(device);
    mUnit.setPropertyGlobal(KAUnitProperty::startTimestampsAtZero, 0U);
    mUnit.setPropertyGlobal(KAUnitProperty::inputCallback,
                            audio::AURenderCallbackStruct{&AudioRecorder::heard, this});
    mUnit.initialize();
    mUnit.start();
  }
  ~AudioRecorder() { mUnit.stop(); }
  AudioRecorder(const AudioRecorder&) = delete;
  AudioRecorder& operator=(const AudioRecorder&) = delete;

  /// The sample time of the first, and what was heard since the last call. Samples that
  /// the device skipped, and those for which there was no room, are silence.
  std::pair<double, std::span<const float>> drain() {
    const double place = mBegin;
    mDrained.assign(mSamples.begin(), mSamples.begin() + static_cast<std::ptrdiff_t>(mCount));
    mBegin += static_cast<double>(std::exchange(mCount, 0));
    return {place, mDrained};
  }

 private:
  static audio::OSStatus heard(const host::RealtimeContext&, void* refCon,
                               const audio::AudioTimeStamp& time, std::uint32_t frames,
                               std::span<float* const> channels) noexcept {
    auto& self = *static_cast<AudioRecorder*>(refCon);
    if (self.mBegin < 0) {
      self.mBegin = time.mSampleTime;
    }
    const auto skipped = time.mSampleTime - self.mBegin - static_cast<double>(self.mCount);
    for (std::size_t i = 0; i < static_cast<std::size_t>(std::max(0.0, skipped)); ++i) {
      self.add(0);
    }
    for (std::uint32_t i = 0; i < frames; ++i) {
      self.add(channels[self.mChannel][i]);
    }
    return 0;
  }
  void add(float sample) noexcept {
    if (mCount < mSamples.size()) {
      mSamples[mCount++] = sample;
    }
  }

  const std::size_t mChannel;
  KAHALDeviceOutputUnit mUnit;
  std::vector<float> mSamples;
  std::vector<float> mDrained;
  std::size_t mCount = 0;
  double mBegin = -1;
};

}  // namespace velor
