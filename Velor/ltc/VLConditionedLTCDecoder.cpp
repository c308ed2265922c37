// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLConditionedLTCDecoder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr double kSlowest = 22.5;  // frames per second
constexpr double kFastest = 31.5;
constexpr double kNewLengthWeight = 0.1;
constexpr double kGone = 1.5;        // frames without one
constexpr double kSlowestRead = 23;  // frames per second
constexpr double kFastestRead = 31;
// A rate that is measured this little beyond the border is at the border.
constexpr double kRateError = 0.001;
constexpr double kLatest = 1;  // frames from the end of one to when it is reported

}  // namespace

VLConditionedLTCDecoder::VLConditionedLTCDecoder(std::uint64_t hostFrequency, double sampleRate,
                                                 LTCDecoderCallback callback, void* refCon)
    : mTicksPerSample(static_cast<double>(hostFrequency) / sampleRate),
      mSampleRate(sampleRate),
      mCallback(callback),
      mRefCon(refCon),
      mClock(sampleRate, kSlowest, kFastest) {}

void VLConditionedLTCDecoder::process(const audio::AudioTimeStamp& timeStamp, const float* samples,
                                      std::uint32_t count) noexcept {
  const double sampleTime = std::isfinite(timeStamp.mSampleTime) ? timeStamp.mSampleTime : 0;
  const double place = sampleTime - mFirstSample;
  if (!mIsRunning || place != static_cast<double>(mPlace)) {
    if (mIsRunning) {
      mClock.finish([this](const VLLTCHalfBit& halfBit) { take(mFinder.push(halfBit)); });
      take(mFinder.finish());
    }
    // Back or far ahead, nothing of what was read stands in a place of the same stream.
    if (!mIsRunning || !(place > static_cast<double>(mPlace)) ||
        place - static_cast<double>(mPlace) > mSampleRate) {
      mRun = {};
      mFirstSample = sampleTime;
      mPlace = 0;
    } else {
      mPlace = static_cast<std::uint64_t>(place);
    }
    mClock.restart(static_cast<double>(mPlace));
    mIsRunning = true;
  }
  mStampPlace = static_cast<double>(mPlace);
  mStampHostTime = timeStamp.mHostTime;
  mClock.process(std::span(samples, count),
                 [this](const VLLTCHalfBit& halfBit) { take(mFinder.push(halfBit)); });
  mPlace += count;
}

// A frame that was cut may come when the signal is there again, which can be much later.
void VLConditionedLTCDecoder::take(const std::optional<VLLTCBits>& bits) noexcept {
  const bool isLate =
      bits && bits->isCut && mStampPlace > bits->end + kLatest * (bits->end - bits->begin);
  if (bits && !bits->isReverse && !isLate) {
    mRun.push(*bits, [this](const VLLTCBits& frame) { deliver(frame); });
  }
}

void VLConditionedLTCDecoder::deliver(const VLLTCBits& bits) noexcept {
  const double length = bits.end - bits.begin;
  if (mAverageLength == 0 || std::fabs(bits.begin - mLastEnd) > kGone * length) {
    mAverageLength = length;
    mTime.mCounter = 0;
  }
  mAverageLength += kNewLengthWeight * (length - mAverageLength);
  mLastEnd = bits.end;
  const double measured = std::round(mSampleRate * 1000 / mAverageLength) / 1000;
  const double fps = std::clamp(measured, kSlowestRead, kFastestRead);
  if (!(std::fabs(fps - measured) <= kRateError * fps)) {
    mAverageLength = 0;
    return;
  }
  const std::uint32_t counter = mTime.mCounter + 1;
  mTime = VLLTCTimeOf(bits, mTime.mType);
  mTime.mCounter = counter;
  static_cast<void>(
      ltc_detect_frame_format(mTime, static_cast<std::uint8_t>(bits.field(kLTCDropFlag)), fps));
  std::array<std::uint8_t, kLTCUserBytes> userBits = bits.userBits();
  const double ticks = (bits.mark - mStampPlace) * mTicksPerSample;
  mCallback(mTime, userBits.data(), mRefCon,
            mStampHostTime + static_cast<std::uint64_t>(std::llround(ticks)), fps);
}

}  // namespace velor
