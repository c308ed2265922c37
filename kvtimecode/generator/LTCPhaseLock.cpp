// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCPhaseLock.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace velor {
namespace {

// A time that comes this much of two frames too late has jumped.
constexpr double kJump = 0.125;
constexpr double kSmoothing = 0.9;

double nominalSamples(const LTCPhaseLock::Call& call) noexcept {
  return std::trunc(call.frameDuration * call.sampleRate);
}

}  // namespace

std::optional<LTCPhaseLock::Batch> LTCPhaseLock::advance(const Call& call) noexcept {
  if (isGivenUp()) {
    return std::nullopt;
  }
  const double distance = call.target - lastTimestamp;
  std::optional<Batch> batch;
  if (std::abs(std::trunc(nominalSamples(call) - 0.5 * distance)) < kMaxJitter) {
    if (std::isnormal(call.target) && std::isnormal(lastTimestamp)) {
      weightedFrameLen = kSmoothing * weightedFrameLen + (1 - kSmoothing) * distance;
    }
    if (call.readEnd == 0 && numWithoutRead++ >= kMaxWithoutRead) {
      return std::nullopt;
    }
    batch = continued(call);
  }
  lastTimestamp = call.target;
  return batch ? batch : restarted(call);
}

// None when the time has jumped, or when the frames would have an impossible length, as
// happens at low sample rates and while the rate changes.
std::optional<LTCPhaseLock::Batch> LTCPhaseLock::continued(const Call& call) noexcept {
  const double error = call.target - nextGeneratorTime;
  if (!(kJump * weightedFrameLen > error)) {
    return std::nullopt;
  }
  std::uint32_t begun = 0;
  double place = 0;  // after the frames that the device has begun
  while (begun < mStanding.size() &&
         nextGeneratorTime + place < static_cast<double>(call.readEnd)) {
    place += mStanding[begun++];
  }
  // The next two frames end where they are due by then.
  const double due = error + 0.5 * (begun + kFramesPerCall) * weightedFrameLen;
  const double frameSamples = std::round((due - place) / kFramesPerCall);
  if (!(frameSamples >= 0.5 * nominalSamples(call) && frameSamples <= call.maxFrameSamples)) {
    return std::nullopt;
  }
  return placed(nextGeneratorTime, mStanding, begun, frameSamples);
}

LTCPhaseLock::Batch LTCPhaseLock::restarted(const Call& call) noexcept {
  weightedFrameLen = call.frameDuration * kFramesPerCall * call.sampleRate;
  const double frameSamples = nominalSamples(call);
  const double start = std::trunc(call.target);
  std::uint32_t begun = 0;
  while (begun < kFramesPerBatch &&
         start + begun * frameSamples < static_cast<double>(call.readEnd)) {
    ++begun;
  }
  Lengths lengths{};
  lengths.fill(static_cast<std::uint32_t>(frameSamples));
  return placed(start, lengths, begun, frameSamples);
}

// Of the frames before the first that is written, `standing` has the lengths.
LTCPhaseLock::Batch LTCPhaseLock::placed(double start, Lengths standing, std::uint32_t firstFrame,
                                         double frameSamples) noexcept {
  const auto written = static_cast<std::uint32_t>(frameSamples);
  std::array<std::uint32_t, kFramesPerBatch> lengths;
  lengths.fill(written);
  std::copy_n(standing.begin(), std::min<std::size_t>(firstFrame, standing.size()),
              lengths.begin());
  const auto placeOf = [&](std::uint32_t frame) {
    return std::accumulate(lengths.begin(), lengths.begin() + frame,
                           static_cast<std::uint64_t>(start));
  };
  nextGeneratorTime = static_cast<double>(placeOf(kFramesPerCall));
  std::copy(lengths.begin() + kFramesPerCall, lengths.end(), mStanding.begin());
  return {firstFrame, placeOf(firstFrame), written};
}

}  // namespace velor
