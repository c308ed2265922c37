// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "Velor/ltc/VLLTCFrameFinder.h"
#include "Velor/ltc/VLLTCHalfBitClock.h"
#include "Velor/ltc/VLLTCRun.h"
#include "Velor/ltc/ltc_decoder.h"
#include "platform/audio/AudioTypes.h"

namespace velor {

/// Reads LTC live from bad lines: forwards, at 23 to 31 frames per second, through noise,
/// DC, hum and a narrow band. docs/performance.md has the figures.
///
/// It stands in for ltc_decoder and calls the same callback with the same values, but for
/// these: the host time is always known; a frame whose time does not continue the run
/// comes with the frame that confirms it, one frame later, or never.
///
/// One thread processes. Realtime-safe: yes, but for the constructor.
class VLConditionedLTCDecoder {
 public:
  /// `hostFrequency` is in ticks per second. Rates as the audio services have them.
  VLConditionedLTCDecoder(std::uint64_t hostFrequency, double sampleRate,
                          LTCDecoderCallback callback, void* refCon);

  /// As ltc_decoder_process. A jump of the sample time starts again.
  void process(const audio::AudioTimeStamp& timeStamp, const float* samples,
               std::uint32_t count) noexcept;

 private:
  void take(const std::optional<VLLTCBits>& bits) noexcept;
  void deliver(const VLLTCBits& bits) noexcept;

  const double mTicksPerSample;
  const double mSampleRate;
  const LTCDecoderCallback mCallback;
  void* const mRefCon;

  VLLTCHalfBitClock mClock;
  VLLTCFrameFinder mFinder;
  VLLTCRun mRun;

  // The place 0 of the clock is at the first sample that was processed.
  bool mIsRunning = false;
  double mFirstSample = 0;
  std::uint64_t mPlace = 0;
  double mStampPlace = 0;
  std::uint64_t mStampHostTime = 0;

  double mAverageLength = 0;  // of a frame, samples; 0 for none
  double mLastEnd = 0;
  SMPTETime mTime;  // keeps format and counter between frames
};

}  // namespace velor
