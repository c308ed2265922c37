// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCPhaseLock.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

namespace velor {
namespace {

constexpr std::uint32_t kRoom = 4000;  // samples of a frame: the ring of 48 kHz

LTCPhaseLock::Call callAt(double target, std::uint64_t readEnd = 1) {
  return {target, 1.0 / 25, 48000, kRoom, readEnd};
}

// In lock at 48 kHz and 25 frames a second, the next target being `next`.
LTCPhaseLock locked(double& next) {
  LTCPhaseLock phase;
  next = 1'000'000;
  for (int i = 0; i < 10; ++i, next += 3840) {
    EXPECT_TRUE(phase.advance(callAt(next)));
  }
  return phase;
}

TEST(LTCPhaseLockTest, AShiftIsCorrectedByTwoFramesUntilItIsAJump) {
  // Two frames are 3840 samples. An eighth of them is a jump, or 301 in a frame.
  struct Case {
    double shift;
    bool isRestart;
    std::uint32_t frameSamples;
  };
  for (const Case& each : {Case{0, false, 1920}, Case{1, false, 1921}, Case{400, false, 2140},
                           Case{-400, false, 1700}, Case{500, true, 1920}, Case{700, true, 1920},
                           Case{-700, true, 1920}, Case{1e9, true, 1920}}) {
    SCOPED_TRACE(each.shift);
    double next = 0;
    LTCPhaseLock phase = locked(next);
    const auto batch = phase.advance(callAt(next + each.shift));
    ASSERT_TRUE(batch);
    EXPECT_EQ(batch->frameSamples, each.frameSamples);
    EXPECT_EQ(batch->start, static_cast<std::uint64_t>(each.isRestart ? next + each.shift : next));
    // The end of the two frames meets the target that follows, as far as is known.
    if (!each.isRestart) {
      EXPECT_NEAR(phase.nextGeneratorTime, next + each.shift + phase.weightedFrameLen, 1);
    }
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
