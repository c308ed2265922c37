// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCPhaseLock.h"

#include <cmath>

namespace velor {
namespace {

// A time that comes this much of two frames too late has jumped.
constexpr double kJump = 0.125;
constexpr double kSmoothing = 0.9;
// Frames of a batch that play before the next call overwrites the others.
constexpr std::uint32_t kFramesPerCall = 2;

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
    const double frameSamples = std::round((error + weightedFrameLen) * 0.5);
    // At low sample rates, and over a change of the rate, the bounds above leave
    // lengths that are no frame.
    const bool isFrame = frameSamples >= nominal * 0.5 && frameSamples <= call.maxFrameSamples;
    if (kJump * weightedFrameLen > error && isFrame) {
      batch = {static_cast<std::uint64_t>(nextGeneratorTime),
               static_cast<std::uint32_t>(frameSamples), false};
    } else {
      batch = restart(call);
    }
  }
  lastTimestamp = call.target;
  nextGeneratorTime = static_cast<double>(batch.start + kFramesPerCall * batch.frameSamples);
  return batch;
}

LTCPhaseLock::Batch LTCPhaseLock::restart(const Call& call) noexcept {
  weightedFrameLen = call.frameDuration * kFramesPerCall * call.sampleRate;
  return {static_cast<std::uint64_t>(call.target), static_cast<std::uint32_t>(nominalSamples(call)),
          true};
}

}  // namespace velor
