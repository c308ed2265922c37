// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLConditionedLTCDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

#include "Velor/ltc/VLLTCVarispeedDecoder.h"
#include "tests/support/LTCReading.h"
#include "tests/support/LTCSignal.h"

namespace velor {
namespace {

constexpr std::size_t kBuffer = 512;

struct Line {
  const char* name;
  double share;  // of the whole frames
  LTCSignalMaker maker;
};

// The last frame of a live signal ends with an edge that does not come.
void expectRead(const Line& line, const LTCSignal& signal, const std::vector<LTCTold>& told) {
  const LTCScore score = scoreOf(signal, told);
  EXPECT_EQ(score.wrong, 0U) << line.name;
  std::size_t whole = 0;
  std::size_t right = 0;
  for (std::size_t i = 0; i + 1 < signal.frames.size(); ++i) {
    whole += signal.frames[i].whole ? 1 : 0;
    right += signal.frames[i].whole && score.read[i] ? 1 : 0;
  }
  EXPECT_GE(static_cast<double>(right), line.share * static_cast<double>(whole)) << line.name;
}

TEST(VLConditionedLTCDecoder, AllThatCanBeReadOfABadLineIsReadAndNothingElse) {
  const auto flutter = [](double time) {
    return 25 * (1 + 0.1 * std::sin(2 * std::numbers::pi * 9 * time));
  };
  const auto steps = [](double time) { return static_cast<int>(time / 2) % 2 == 0 ? 24.0 : 30.0; };
  const Line lines[] = {
      {"clean", 1, {}},
      {"29.97 drop, inverted", 1, {.type = kSMPTETimeType2997Drop, .inverted = true}},
      {"noise 9 dB below", 0.99, {.signalToNoise = 9}},
      {"noise 5 dB below", 0.9, {.signalToNoise = 5}},
      {"3 kHz, noise 12 dB below", 0.99, {.lowPass = 3000, .signalToNoise = 12}},
      {"192 kHz, noise 18 dB below", 0.99, {.sampleRate = 192000, .signalToNoise = 18}},
      {"8 kHz", 1, {.sampleRate = 8000}},
      {"-60 dBFS in 16 bits", 1, {.level = 0.001, .bits = 16}},
      {"DC of thrice the level, hum of the level, clipped",
       1,
       {.offset = 3, .hum = 1, .clip = 2.1}},
      {"drop-outs of 20 ms", 1, {.dropOut = 0.02}},
      {"drop-outs of 20 ms, noise 20 dB below", 1, {.signalToNoise = 20, .dropOut = 0.02}},
      {"xruns", 0.98, {.xrun = 0.0107}},
      {"flutter of 10 %", 1, {.speed = flutter}},
      {"23 frames per second", 1, {.speed = [](double) { return 23.0; }}},
      {"steps between 24 and 30", 1, {.speed = steps}},
  };
  for (const Line& line : lines) {
    LTCSignalMaker maker = line.maker;
    maker.frames = 300;
    const LTCSignal signal = maker.make();
    expectRead(line, signal, readConditioned(signal, kBuffer));
    if (signal.losses.empty()) {
      expectRead(line, signal, readVarispeed(signal));
    }
  }
}

// At half the speed each bit looks like two.
TEST(VLConditionedLTCDecoder, AMachineThatComesUpToSpeedIsReadFrom23FramesPerSecondOn) {
  const auto faster = [](double time) { return std::min(12.0 + time, 25.0); };
  const LTCSignal signal = LTCSignalMaker{.frames = 300, .speed = faster}.make();
  const LTCScore score = scoreOf(signal, readConditioned(signal, kBuffer));
  EXPECT_EQ(score.wrong, 0U);
  for (std::size_t i = 0; i + 1 < signal.frames.size(); ++i) {
    const double rate = signal.sampleRate / (signal.frames[i].end - signal.frames[i].begin);
    EXPECT_TRUE(rate < 23 || score.read[i]) << rate;
  }
}

// The frames on both sides of a cut are true; what stands across it is not, also where the
// bits are as many as those of a frame.
TEST(VLConditionedLTCDecoder, NoFrameIsMadeOfTheTwoSidesOfACut) {
  const LTCSignal signal = LTCSignalMaker{.frames = 3000, .splice = 0.333}.make();
  const LTCScore score = scoreOf(signal, readConditioned(signal, kBuffer));
  EXPECT_EQ(score.wrong, 0U);
  EXPECT_GT(score.right, 1800U);
}

// All that a frame says stands before its sync word, of which twelve bits tell that the bits
// before them are whole. What follows the cut must not end the frame by chance.
TEST(VLConditionedLTCDecoder, AFrameThatLacksFourBitsOfItsSyncWordIsReadAndOneThatLacksTenIsNot) {
  constexpr double kBit = 24;  // samples
  const LTCSignal before = LTCSignalMaker{.frames = 20}.make();
  LTCSignal after = LTCSignalMaker{.frames = 20, .seed = 7}.make();
  const std::size_t silence = after.samples.size();
  after.samples.resize(silence + 4000);
  const LTCSignal::Frame& last = before.frames[10];
  for (const double missing : {0.7, 3.3, 9.7}) {
    for (const std::size_t from : {std::size_t{5000}, std::size_t{5011}, silence}) {
      LTCSignal signal = before;
      signal.samples.resize(static_cast<std::size_t>(last.end - missing * kBit));
      signal.samples.insert(signal.samples.end(),
                            after.samples.begin() + static_cast<std::ptrdiff_t>(from),
                            after.samples.end());
      for (const auto& told : {readConditioned(signal, kBuffer), readVarispeed(signal)}) {
        const auto found = std::find_if(told.begin(), told.end(), [&](const LTCTold& frame) {
          return std::fabs(frame.place - last.begin) < kBit;
        });
        const bool isExpected = missing < 4;
        ASSERT_EQ(found != told.end(), isExpected) << missing << " bits, then from " << from;
        EXPECT_TRUE(!isExpected || (found->userBytes == last.userBytes &&
                                    found->time.mFrames == last.time.mFrames));
      }
    }
  }
}

// A cut gave 55:24 the first bits of another frame, so that it seems to be 55:23.
TEST(VLLTCRun, ASecondThatIsTooShortConfirmsNoFrame) {
  VLLTCRun run;
  std::vector<unsigned> told;
  const auto push = [&](double place, unsigned seconds, unsigned frames) {
    VLLTCBits bits;
    bits.begin = place * 1920;
    bits.end = bits.begin + 1920;
    bits.word = frames % 10 | frames / 10 << 8U | seconds % 10 << 16U | seconds / 10 << 24U;
    run.push(bits, [&](const VLLTCBits& each) {
      told.push_back(static_cast<unsigned>(VLLTCTimeOf(each, kSMPTETimeType25).mFrames));
    });
  };
  for (unsigned i = 0; i < 60; ++i) {
    push(i, 10 + i / 25, i % 25);
  }
  EXPECT_EQ(told.size(), 60U);
  told.clear();
  push(61.4, 55, 23);
  push(62.4, 56, 0);
  push(63.4, 56, 1);
  EXPECT_EQ(told, (std::vector<unsigned>{0, 1}));
}

TEST(VLConditionedLTCDecoder, FramesHaveTheirPlaceAndRateWhateverTheBuffers) {
  for (const double noise : {0.0, 12.0}) {
    // Its frames fall between the samples.
    const LTCSignal signal =
        LTCSignalMaker{.type = kSMPTETimeType2997, .frames = 300, .signalToNoise = noise}.make();
    const auto told = readConditioned(signal, kBuffer);
    double squares = 0;
    std::uint32_t counter = 0;
    for (const LTCTold& frame : told) {
      const std::size_t index = frameOf(signal, frame);
      // No bit stands before the first frame.
      const double error = index > 0 ? hostTimeErrorOf(signal, index, frame) * 48e-6 : 0;
      squares += error * error / static_cast<double>(told.size());
      EXPECT_EQ(frame.time.mType, kSMPTETimeType2997);
      EXPECT_EQ(frame.time.mCounter, ++counter);
      EXPECT_NEAR(frame.fps, 29.97, 0.02);
    }
    EXPECT_LT(std::sqrt(squares), 0.5) << "samples";
    const auto again = readConditioned(signal, 37);
    ASSERT_EQ(again.size(), told.size());
    for (std::size_t i = 0; i < told.size(); ++i) {
      EXPECT_NEAR(again[i].place, told[i].place, 0.001);
    }
  }
}

TEST(VLConditionedLTCDecoder, NoFrameComesMoreThanOneFrameLaterThanPlainly) {
  for (const double rate : {23.0, 25.0, 31.0}) {
    const LTCSignal signal =
        LTCSignalMaker{.frames = 300, .speed = [rate](double) { return rate; }, .dropOut = 0.05}
            .make();
    constexpr std::size_t kShort = 16;
    std::map<std::pair<int, int>, double> conditioned;
    for (const LTCTold& frame : readConditioned(signal, kShort)) {
      conditioned[{frame.time.mSeconds, frame.time.mFrames}] = frame.toldAt;
    }
    const auto plain = readByVelor(signal, kShort);
    ASSERT_GT(plain.size(), 150U) << rate;
    for (const LTCTold& frame : plain) {
      const auto found = conditioned.find({frame.time.mSeconds, frame.time.mFrames});
      ASSERT_NE(found, conditioned.end()) << frame.time.mSeconds << ":" << frame.time.mFrames;
      EXPECT_LE(found->second, frame.toldAt + signal.sampleRate / rate);
    }
  }
}

TEST(VLConditionedLTCDecoder, AMachineThatStandsStillIsRead) {
  LTCSignal signal = LTCSignalMaker{.frames = 20}.make();
  const std::size_t length = 1920;  // of a frame, at whose end the level is that of its begin
  std::vector<float> samples;
  for (std::size_t i = 0; i < 20 * length; ++i) {
    samples.push_back(signal.samples[i % length]);
  }
  signal.samples = samples;
  const auto told = readConditioned(signal, kBuffer);
  ASSERT_GE(told.size(), 17U);
  EXPECT_TRUE(std::all_of(told.begin(), told.end(), [&](const LTCTold& frame) {
    return frame.time.mFrames == 13 && frame.time.mHours == 17;
  }));
}

TEST(VLLTCVarispeedDecoder, AllFramesAreReadInBothDirectionsFromATenthToEightTimesTheSpeed) {
  for (const double speed : {0.1, 0.14, 0.5, 0.9, 2.0, 4.0, 8.0}) {
    const LTCSignal signal = LTCSignalMaker{.frames = 60,
                                            .speed = [speed](double) { return 25 * speed; },
                                            .riseTime = 40e-6 / speed}
                                 .make();
    for (const bool isReverse : {false, true}) {
      const LTCSignal played = isReverse ? reversed(signal) : signal;
      const auto told = readVarispeed(played);
      const LTCScore score = scoreOf(played, told);
      EXPECT_EQ(score.right, played.frames.size()) << speed << " times, reverse " << isReverse;
      EXPECT_EQ(score.wrong, 0U);
      for (const LTCTold& frame : told) {
        EXPECT_EQ(frame.isReverse, isReverse);
        EXPECT_NEAR(frame.place, played.frames[frameOf(played, frame)].begin, 1 / speed + 1);
      }
    }
  }
}

TEST(VLLTCVarispeedDecoder, ARampIsReadThroughAllOctaves) {
  const LTCSignal signal =
      LTCSignalMaker{.frames = 1000,
                     .speed = [](double time) { return 2.5 * std::exp2(std::min(time, 12.0) / 2); },
                     .riseTime = 10e-6}
          .make();
  const LTCScore score = scoreOf(signal, readVarispeed(signal));
  EXPECT_GE(score.right, 999U);
  EXPECT_EQ(score.wrong, 0U);
}

TEST(VLLTCVarispeedDecoder, WhatIsNotLTCHasNoFrames) {
  std::mt19937 random(1);
  std::normal_distribution<float> noise(0, 0.3F);
  float level = 0.4F;
  std::size_t left = 0;
  const auto halvesAndWholesOfABit = [&] {
    if (left-- == 0) {
      left = random() % 2 == 0 ? 11 : 23;
      level = -level;
    }
    return level;
  };
  const std::function<float()> kinds[] = {[] { return 0.0F; }, [&] { return noise(random); },
                                          halvesAndWholesOfABit};
  for (const double sampleRate : {8000.0, 48000.0, 768000.0}) {
    for (const auto& kind : kinds) {
      LTCSignal signal;
      signal.sampleRate = sampleRate;
      std::generate_n(std::back_inserter(signal.samples), 100000, kind);
      EXPECT_TRUE(readVarispeed(signal).empty());
      EXPECT_TRUE(readConditioned(signal, kBuffer).empty());
    }
  }
}

// Samples that are not numbers spoil what they touch, and nothing behind it.
TEST(VLConditionedLTCDecoder, AValueThatIsNotASampleCostsItsFrameAlone) {
  LTCSignal signal = LTCSignalMaker{.frames = 50}.make();
  for (std::size_t i = 0; i < 600; ++i) {
    signal.samples[20000 + i] = i % 2 == 0 ? std::numeric_limits<float>::quiet_NaN()
                                           : -std::numeric_limits<float>::infinity();
  }
  const LTCScore score = scoreOf(signal, readConditioned(signal, kBuffer));
  EXPECT_GE(score.right, 48U);
  EXPECT_EQ(score.wrong, 0U);
}

}  // namespace
}  // namespace velor
