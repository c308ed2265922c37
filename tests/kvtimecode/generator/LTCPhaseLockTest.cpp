// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCPhaseLock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <utility>

namespace velor {
namespace {

constexpr std::uint32_t kRoom = 4000;  // samples of a frame: the ring of 48 kHz

LTCPhaseLock::Call callAt(double target, std::uint64_t readEnd = 1) {
  return {target, 1.0 / 25, 48000, kRoom, readEnd};
}

TEST(LTCPhaseLockTest, AShiftIsCorrectedByTwoFramesUntilItIsAJump) {
  // Two frames are 3840 samples. An eighth of them is a jump, or 301 in a frame.
  for (const auto& [shift, frameSamples] :
       {std::pair(400, 2140U), {-400, 1700U}, {500, 1920U}, {-700, 1920U}}) {
    LTCPhaseLock phase;
    double next = 1'000'000;
    for (int i = 0; i < 10; ++i, next += 3840) {
      EXPECT_TRUE(phase.advance(callAt(next)));
    }
    const auto batch = phase.advance(callAt(next + shift));
    ASSERT_TRUE(batch);
    EXPECT_EQ(batch->frameSamples, frameSamples);
    const bool isRestart = frameSamples == 1920;
    EXPECT_EQ(batch->start, static_cast<std::uint64_t>(isRestart ? next + shift : next)) << shift;
  }
}

// Whatever comes in, a batch is one that fits the ring and has frames.
TEST(LTCPhaseLockTest, NoCourseOfTimesGivesFramesThatAreNone) {
  std::mt19937 random(4);
  const auto upTo = [&random](double limit) {
    return std::uniform_real_distribution<double>(0, limit)(random);
  };
  int inLock = 0;
  for (const double rate : {8000.0, 11025.0, 44100.0, 192000.0}) {
    LTCPhaseLock phase;
    double target = 0;
    for (int i = 0; i < 100000; ++i) {
      const double duration = 1 / (i / 1000 % 2 == 0 ? 24.0 : 30.0);
      const double steps[] = {2 * duration * rate, upTo(4 * duration * rate), upTo(600),
                              upTo(1) < 0.5 ? -upTo(target) : upTo(1e6)};
      target = std::max(0.0, target + steps[i % 20 == 0 ? random() % 4 : 0] + upTo(500) - 250);
      LTCPhaseLock::Call call{target, duration, rate,
                              static_cast<std::uint32_t>(std::ceil(rate / 24) * 2), 1};
      const auto batch = phase.advance(call);
      ASSERT_TRUE(batch);
      ASSERT_GE(batch->frameSamples, std::floor(duration * rate / 2));
      ASSERT_LE(batch->frameSamples, call.maxFrameSamples);
      inLock += std::abs(static_cast<double>(batch->start) - target) < 1 ? 0 : 1;
    }
  }
  EXPECT_GT(inLock, 100000);
}

}  // namespace
}  // namespace velor
