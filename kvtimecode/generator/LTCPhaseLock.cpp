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
      // To where the frames of the next call should end.
      const double later = std::round(error * 0.5 + weightedFrameLen - frameSamples);
      batch = {static_cast<std::uint64_t>(nextGeneratorTime), static_cast<std::uint32_t>(wanted),
               false, frameSamples,
               static_cast<std::uint32_t>(
                   std::clamp(later, nominal * 0.5, static_cast<double>(call.maxFrameSamples)))};
    } else {
      batch = restart(call);
    }
  }
  frameSamples = batch.frameSamples;
  lastTimestamp = call.target;
  nextGeneratorTime = static_cast<double>(batch.start + kFramesPerCall * batch.frameSamples);
  return batch;
}

LTCPhaseLock::Batch LTCPhaseLock::restart(const Call& call) noexcept {
  weightedFrameLen = call.frameDuration * kFramesPerCall * call.sampleRate;
  return {static_cast<std::uint64_t>(call.target), static_cast<std::uint32_t>(nominalSamples(call)),
          true, 0, 0};
}

std::uint32_t LTCPhaseLock::Batch::keptFrames(std::uint64_t readEnd) const noexcept {
  if (isRestart || previousSamples == 0 || readEnd <= start) {
    return 0;
  }
  const double change = std::abs(static_cast<double>(frameSamples) - previousSamples);
  if (change == 0 || 2 * change > previousSamples * kMostChange) {
    return 0;
  }
  const std::uint64_t begun = (readEnd - start + previousSamples - 1) / previousSamples;
  return begun <= kFramesPerCall ? static_cast<std::uint32_t>(begun) : 0;
}

void LTCPhaseLock::keep(const Batch& batch, std::uint32_t kept) noexcept {
  if (kept == kFramesPerCall) {
    frameSamples = batch.laterSamples;
    nextGeneratorTime = static_cast<double>(batch.start + kept * batch.previousSamples);
  }
}

}  // namespace velor
