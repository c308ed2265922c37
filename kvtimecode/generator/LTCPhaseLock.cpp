// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCPhaseLock.h"

#include <algorithm>
#include <cmath>

namespace velor {
namespace {

// A time that comes this much of two frames too late has jumped.
constexpr double kJump = 0.125;
constexpr double kSmoothing = 0.9;
// Frames of a batch that play before the next call overwrites the others.
constexpr std::uint32_t kFramesPerCall = 2;
// Of a frame's length, that readers follow from one frame to the next.
constexpr double kMostChange = 1.0 / 6;

double nominalSamples(const LTCPhaseLock::Call& call) noexcept {
  return std::trunc(call.frameDuration * call.sampleRate);
}

}  // namespace

std::optional<LTCPhaseLock::Batch> LTCPhaseLock::advance(const Call& call) noexcept {
  if (numWithoutRead > kMaxWithoutRead) {
    return std::nullopt;
  }
  const double nominal = nominalSamples(call);
  const double distance = call.target - lastTimestamp;
  Batch batch{};
  if (std::abs(std::trunc(nominal - 0.5 * distance)) >= kMaxJitter) {
    batch = restart(call);
  } else {
    if (std::isnormal(call.target) && std::isnormal(lastTimestamp)) {
      weightedFrameLen = kSmoothing * weightedFrameLen + (1 - kSmoothing) * distance;
    }
    if (!call.wasRead && numWithoutRead++ >= kMaxWithoutRead) {
      return std::nullopt;
    }
    const double error = call.target - nextGeneratorTime;
    const double wanted = std::round((error + weightedFrameLen) * 0.5);
    // At low sample rates, and over a change of the rate, the bounds above leave
    // lengths that are no frame.
    const bool isFrame = wanted >= nominal * 0.5 && wanted <= call.maxFrameSamples;
    if (kJump * weightedFrameLen > error && isFrame) {
      batch = {static_cast<std::uint64_t>(nextGeneratorTime),
               static_cast<std::uint32_t>(wanted),
               false,
               standing,
               {}};
      batch.behind.fill(batch.frameSamples);
      // Two of them take up what the frames that stay are off.
      double place = standing[0];
      for (std::uint32_t kept = 2; kept <= kStanding; ++kept) {
        place += standing[kept - 1];
        const double length = 0.5 * (error + 0.5 * (kept + 2) * weightedFrameLen - place);
        batch.behind[kept] = static_cast<std::uint32_t>(std::clamp(
            std::round(length), nominal * 0.5, static_cast<double>(call.maxFrameSamples)));
      }
    } else {
      batch = restart(call);
    }
  }
  lastTimestamp = call.target;
  keep(batch, 0);
  return batch;
}

LTCPhaseLock::Batch LTCPhaseLock::restart(const Call& call) noexcept {
  weightedFrameLen = call.frameDuration * kFramesPerCall * call.sampleRate;
  Batch batch{static_cast<std::uint64_t>(call.target),
              static_cast<std::uint32_t>(nominalSamples(call)),
              true,
              {},
              {}};
  batch.behind.fill(batch.frameSamples);
  return batch;
}

std::uint32_t LTCPhaseLock::Batch::keptFrames(std::uint64_t readEnd) const noexcept {
  if (isRestart || standing[0] == 0) {
    return 0;
  }
  std::uint32_t begun = 0;
  double change = 0;
  std::uint64_t place = start;
  for (; begun < kStanding && place < readEnd; ++begun) {
    place += standing[begun];
    change = std::max(change, std::abs(static_cast<double>(frameSamples) - standing[begun]));
  }
  const bool isFrame = 2 * change <= standing[0] * kMostChange;
  return change != 0 && isFrame && place >= readEnd ? begun : 0;
}

std::uint64_t LTCPhaseLock::Batch::startOf(std::uint32_t frame, std::uint32_t kept) const noexcept {
  std::uint64_t place = start;
  for (std::uint32_t i = 0; i < frame; ++i) {
    place += samplesOf(i, kept);
  }
  return place;
}

void LTCPhaseLock::keep(const Batch& batch, std::uint32_t kept) noexcept {
  nextGeneratorTime = static_cast<double>(batch.startOf(kFramesPerCall, kept));
  for (std::uint32_t i = 0; i < kStanding; ++i) {
    standing[i] = batch.samplesOf(kFramesPerCall + i, kept);
  }
}

}  // namespace velor
