// SPDX-License-Identifier: MIT
#include "platform/audio/jack/JackSampleClock.h"

#include <cmath>

namespace velor::audio {
namespace {

constexpr double kNsPerSecond = 1e9;
// A measurement over less time is not better than the nominal rate.
constexpr std::uint64_t kShortestMeasure = 1'000'000'000;
constexpr std::uint64_t kMarkInterval = 10'000'000'000;
// No crystal is further off; the count has jumped then.
constexpr double kLargestError = 1e-3;

}  // namespace

double JackSampleClock::measuredRate(const jack::JackCycle& cycle) noexcept {
  const double nominal = cycle.nominalRate / kNsPerSecond;
  const Mark now{cycle.startFrame, cycle.startTime};
  const std::uint64_t span = now.time - rt.older.time;
  double rate = nominal;
  bool isSound = rt.epoch == cycle.epoch && now.time > rt.older.time;
  if (isSound && span > kShortestMeasure) {
    rate = static_cast<double>(now.frame - rt.older.frame) / static_cast<double>(span);
    isSound = std::abs(rate - nominal) <= nominal * kLargestError;
  }
  if (!isSound) {
    rt.epoch = cycle.epoch;
    rt.older = now;
    rt.newer = now;
    return nominal;
  }
  if (now.time - rt.newer.time > kMarkInterval) {
    rt.older = rt.newer;
    rt.newer = now;
  }
  return rate;
}

void JackSampleClock::advance(const jack::JackCycle& cycle) noexcept {
  mLine.store({cycle.startFrame, cycle.startTime, measuredRate(cycle)});
  mRunning.store(true, std::memory_order_release);
}

OSStatus JackSampleClock::translate(const AudioTimeStamp& in, AudioTimeStamp& out) const noexcept {
  if (!mRunning.load(std::memory_order_acquire)) {
    return kAudioHardwareNotRunningError;
  }
  const Line line = mLine.load();
  AudioTimeStamp result = in;
  if ((in.mFlags & kAudioTimeStampHostTimeValid) != 0) {
    const auto distance = static_cast<double>(static_cast<std::int64_t>(in.mHostTime - line.time));
    result.mSampleTime = static_cast<double>(line.frame) + distance * line.framesPerNs;
  } else if ((in.mFlags & kAudioTimeStampSampleTimeValid) != 0) {
    const double distance = in.mSampleTime - static_cast<double>(line.frame);
    result.mHostTime =
        line.time + static_cast<std::uint64_t>(std::llround(distance / line.framesPerNs));
  } else {
    return kAudioHardwareUnspecifiedError;
  }
  result.mFlags = kAudioTimeStampSampleHostTimeValid;
  out = result;
  return 0;
}

}  // namespace velor::audio
