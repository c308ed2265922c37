// SPDX-License-Identifier: MIT
#include "platform/jack/JackTimeBase.h"
#include "platform/host/Host.h"

#include <cmath>

namespace velor::jack {
namespace {

constexpr double kNsPerUs = 1000.0;
// The server cuts its time to whole microseconds: half of one is lost on average.
constexpr double kServerTimeLossNs = 500.0;
// A reading that was interrupted for longer than this tells nothing.
constexpr std::uint64_t kLongestReading = 20'000;
// The difference is followed together with its slope, so that a steady drift
// leaves no lag; at these gains the noise of a reading comes down to a third, and
// the loop has settled after some 100 cycles.
constexpr double kGain = 0.05;
constexpr double kSlopeGain = 0.001;
// Beyond this the clocks were set or stood still; smoothing would only be late.
constexpr double kJump = 1e6;

}  // namespace

std::int64_t JackCycle::frameAt(std::uint64_t time) const noexcept {
  const auto distance = static_cast<double>(static_cast<std::int64_t>(time - startTime));
  return static_cast<std::int64_t>(startFrame) + std::llround(distance * framesPerNs);
}

std::uint64_t JackCycle::timeAt(std::uint32_t offset) const noexcept {
  return startTime + static_cast<std::uint64_t>(std::llround(offset / framesPerNs));
}

const JackCycle& JackTimeBase::advance(const Reading& reading) noexcept {
  const double host = static_cast<double>(reading.hostBefore) +
                      static_cast<double>(reading.hostAfter - reading.hostBefore) / 2;
  const double difference =
      host - (static_cast<double>(reading.serverNowUs) * kNsPerUs + kServerTimeLossNs);
  if (!mStarted || std::abs(difference - mDifference) > kJump) {
    mDifference = difference;
    mSlope = 0;
  } else {
    mDifference += mSlope;
    if (reading.hostAfter - reading.hostBefore <= kLongestReading) {
      const double error = difference - mDifference;
      mDifference += error * kGain;
      mSlope += error * kSlopeGain;
    }
  }

  if (!mStarted) {
    mCycle.startFrame = reading.frame;
  } else {
    mCycle.startFrame +=
        static_cast<std::uint64_t>(static_cast<std::int32_t>(reading.frame - mLastFrame));
  }
  if (!mStarted || mSampleRate != reading.sampleRate) {
    ++mCycle.epoch;
  }
  mStarted = true;
  mLastFrame = reading.frame;
  mSampleRate = reading.sampleRate;

  mCycle.frames = reading.frames;
  mCycle.nominalRate = reading.sampleRate;
  mCycle.startTime =
      static_cast<std::uint64_t>(static_cast<double>(reading.startUs) * kNsPerUs + mDifference);
  const double lengthNs = static_cast<double>(reading.nextUs - reading.startUs) * kNsPerUs;
  mCycle.framesPerNs = reading.nextUs > reading.startUs
                           ? reading.frames / lengthNs
                           : static_cast<double>(reading.sampleRate) / host::kNsPerSecond;
  return mCycle;
}

}  // namespace velor::jack
