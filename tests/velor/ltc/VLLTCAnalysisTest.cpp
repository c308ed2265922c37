// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCAnalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <vector>

#include "tests/support/LTCSignal.h"

namespace velor {
namespace {

using Kind = VLLTCReport::Kind;

VLLTCReport analysed(const LTCSignal& signal) {
  VLLTCAnalysis analysis(signal.sampleRate);
  constexpr std::size_t kBlock = 5000;
  for (std::size_t i = 0; i < signal.samples.size(); i += kBlock) {
    analysis.process(
        std::span(signal.samples).subspan(i, std::min(kBlock, signal.samples.size() - i)));
  }
  analysis.finish();
  return analysis.report();
}

// Rows of damaged frames that have whole ones on both sides.
std::size_t gapsOf(const LTCSignal& signal) {
  std::size_t gaps = 0;
  for (std::size_t i = 1; i < signal.frames.size(); ++i) {
    gaps += signal.frames[i].whole && !signal.frames[i - 1].whole ? 1 : 0;
  }
  return gaps - (signal.frames.front().whole ? 0 : 1);
}

TEST(VLLTCAnalysis, WhatASignalWasMadeOfIsMeasured) {
  for (const double sampleRate : {44100.0, 48000.0, 192000.0}) {
    SCOPED_TRACE(sampleRate);
    const VLLTCReport report =
        analysed(LTCSignalMaker{.sampleRate = sampleRate,
                                .type = kSMPTETimeType2398,
                                .frames = 500,
                                .speed = [](double) { return 24000.0 / 1001 * (1 + 37e-6); },
                                .riseTime = 60e-6,
                                .level = 0.4,
                                .offset = 0.2,
                                .hum = 0.1,
                                .signalToNoise = 20}
                     .make());
    EXPECT_EQ(report.frames, 500U);
    EXPECT_EQ(report.format, kSMPTETimeType2398);
    EXPECT_EQ(report.other, kSMPTETimeType24);
    EXPECT_NEAR(report.sigmas.value_or(0), 20, 2);  // 1001 ppm by clocks of 50 ppm
    EXPECT_NEAR(report.deviation, 37, 3 * report.uncertainty + 0.2);
    EXPECT_LT(report.uncertainty, 1);
    EXPECT_NEAR(report.level, 0.4, 0.01);
    EXPECT_NEAR(report.signalToNoise, 20, 0.5);
    EXPECT_NEAR(report.offset, 0.08, 0.004);
    EXPECT_NEAR(report.hum, 0.04, 0.004);
    EXPECT_EQ(report.humFrequency, 50);
    EXPECT_NEAR(report.riseTime, 60e-6, 10e-6);
    EXPECT_EQ(report.count(Kind::dropOut) + report.count(Kind::splice), 0U);
  }
}

TEST(VLLTCAnalysis, JitterAndDriftAreMeasured) {
  constexpr double kSwing = 20e-6;  // s, of places
  constexpr double kTurn = 2 * std::numbers::pi * 100;
  const auto atSpeed = [](const std::function<double(double)>& speed) {
    return analysed(LTCSignalMaker{.frames = 500, .speed = speed}.make());
  };
  const VLLTCReport shaken =
      atSpeed([](double time) { return 25 / (1 + kSwing * kTurn * std::cos(kTurn * time)); });
  EXPECT_NEAR(shaken.jitter, kSwing / std::numbers::sqrt2, 2e-6);
  EXPECT_NEAR(shaken.jitterPeak, kSwing, 6e-6);
  EXPECT_NEAR(shaken.bit, 0.0005, 1e-6);
  const VLLTCReport drifting = atSpeed([](double time) { return 25 * (1 + 60e-6 * time / 60); });
  EXPECT_NEAR(drifting.drift, 60, 6);
  EXPECT_NEAR(drifting.highest - drifting.lowest, 20, 4);
  EXPECT_LT(drifting.jitter, 2e-6);
}

TEST(VLLTCAnalysis, EachFaultIsCountedOnceWithItsAddresses) {
  const LTCSignal holed = LTCSignalMaker{.frames = 500, .dropOut = 0.1}.make();
  const VLLTCReport lost = analysed(holed);
  EXPECT_EQ(lost.count(Kind::dropOut), gapsOf(holed));
  EXPECT_EQ(lost.count(Kind::splice), 0U);
  EXPECT_NEAR(lost.events.at(0).length, 0.12, 0.045);
  const auto number = [](const SMPTETime& time) { return time.mSeconds * 25 + time.mFrames; };
  EXPECT_NEAR(number(lost.events[0].behind) - number(lost.events[0].before), 4, 1);
  const LTCSignal spliced = LTCSignalMaker{.frames = 500, .splice = 0.05}.make();
  const VLLTCReport cut = analysed(spliced);
  EXPECT_EQ(cut.count(Kind::splice), gapsOf(spliced));
  EXPECT_EQ(cut.count(Kind::dropOut), 0U);

  // A frame that stands three times, where the signal begins at the same level.
  LTCSignal signal = LTCSignalMaker().make();
  const auto frame = [&](std::size_t i) {
    return std::vector<float>(signal.samples.begin() + static_cast<std::ptrdiff_t>(1920 * i),
                              signal.samples.begin() + static_cast<std::ptrdiff_t>(1920 * (i + 1)));
  };
  const std::vector<float> again = frame(50);
  for (int i = 0; i < 2; ++i) {
    signal.samples.insert(signal.samples.begin() + 1920 * 51, again.begin(), again.end());
  }
  const VLLTCReport repeated = analysed(signal);
  EXPECT_EQ(repeated.count(Kind::repeat), 2U);
  EXPECT_EQ(repeated.count(Kind::splice), 0U);
  ASSERT_FALSE(repeated.events.empty());
  EXPECT_EQ(repeated.events[0].before.mFrames, (13 + 50) % 25);
  EXPECT_EQ(repeated.userBitChanges, 99U);
}

TEST(VLLTCAnalysis, TheVerdictFollowsTheLimitAndBadSignalsAreNamed) {
  const auto verdict = [](double ratio) {
    return analysed(LTCSignalMaker{.frames = 200, .signalToNoise = ratio}.make()).verdict();
  };
  EXPECT_TRUE(verdict(17).starts_with("good; 14 dB above the limit")) << verdict(17);
  EXPECT_TRUE(verdict(5).starts_with("bad; 2 dB above the limit")) << verdict(5);
  LTCSignal noise;
  noise.sampleRate = 48000;
  EXPECT_EQ(analysed(noise).verdict(), "silence");
  std::mt19937 random(1);
  std::normal_distribution<float> normal(0, 0.2F);
  std::generate_n(std::back_inserter(noise.samples), 96000, [&] { return normal(random); });
  noise.samples[500] = std::nanf("");
  EXPECT_EQ(analysed(noise).verdict(), "no LTC");

  const VLLTCReport reverse = analysed(reversed(LTCSignalMaker().make()));
  EXPECT_EQ(reverse.reverseFrames, 100U);
  EXPECT_EQ(reverse.count(Kind::splice), 0U);
  EXPECT_LT(reverse.jitter, 2e-6);
  const VLLTCReport twice =
      analysed(LTCSignalMaker{.frames = 500, .speed = [](double) { return 50.0; }}.make());
  EXPECT_EQ(twice.format, kSMPTETimeType25);
  EXPECT_NEAR(twice.deviation, 1e6, 10);
  EXPECT_FALSE(twice.sigmas);
}

}  // namespace
}  // namespace velor
