// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackTimeBase.h"

#include <cmath>

namespace velor::midi {
namespace {

constexpr double kNsPerUs = 1000.0;
constexpr double kNsPerSecond = 1e9;
// The server cuts its time to whole microseconds: half of one is lost on average.
constexpr double kServerTimeLossNs = 500.0;
// A reading that was interrupted for longer than this tells nothing.
constexpr MIDITimeStamp kLongestReading = 20'000;
// About 50 cycles of memory: noise of a reading well below a microsecond, and a
// lag at 100 ppm of drift and 21 ms cycles of 0.1 ms x 1 s, below a sample.
constexpr double kSmoothing = 0.02;
// Beyond this the clocks were set or stood still; smoothing would only be late.
constexpr double kJump = 1e6;

}  // namespace

std::int64_t JackCycle::frameAt(MIDITimeStamp time) const noexcept {
  const auto distance = static_cast<double>(static_cast<std::int64_t>(time - startTime));
  return static_cast<std::int64_t>(startFrame) + std::llround(distance * framesPerNs);
}

MIDITimeStamp JackCycle::timeAt(std::uint32_t offset) const noexcept {
  return startTime + static_cast<MIDITimeStamp>(std::llround(offset / framesPerNs));
}

const JackCycle& JackTimeBase::advance(const Reading& reading) noexcept {
  const double host = static_cast<double>(reading.hostBefore) +
                      static_cast<double>(reading.hostAfter - reading.hostBefore) / 2;
  const double difference =
      host - (static_cast<double>(reading.serverNowUs) * kNsPerUs + kServerTimeLossNs);
  if (!mStarted || std::abs(difference - mDifference) > kJump) {
    mDifference = difference;
  } else if (reading.hostAfter - reading.hostBefore <= kLongestReading) {
    mDifference += (difference - mDifference) * kSmoothing;
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
      static_cast<MIDITimeStamp>(static_cast<double>(reading.startUs) * kNsPerUs + mDifference);
  const double lengthNs = static_cast<double>(reading.nextUs - reading.startUs) * kNsPerUs;
  mCycle.framesPerNs = reading.nextUs > reading.startUs ? reading.frames / lengthNs
                                                        : reading.sampleRate / kNsPerSecond;
  return mCycle;
}

}  // namespace velor::midi
