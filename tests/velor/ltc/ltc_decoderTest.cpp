// SPDX-License-Identifier: MIT
#include "Velor/ltc/ltc_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LTCReading.h"
#include "tests/support/LTCSignal.h"

namespace velor {
namespace {

constexpr std::array<std::uint32_t, 7> kTypes = {
    kSMPTETimeType24,   kSMPTETimeType25,       kSMPTETimeType30Drop, kSMPTETimeType30,
    kSMPTETimeType2997, kSMPTETimeType2997Drop, kSMPTETimeType2398};
constexpr std::array<double, 5> kSampleRates = {44100, 48000, 88200, 96000, 192000};
constexpr std::size_t kBuffer = 512;

// A frame to fall into step, and one to measure from.
constexpr std::size_t kUntold = 2;

// Clean signals.

void expectAllRead(const LTCSignal& signal, std::uint32_t type, std::size_t atEnd) {
  const std::vector<LTCTold> told = readByVelor(signal, kBuffer);
  const LTCScore score = scoreOf(signal, told);
  EXPECT_EQ(score.wrong, 0U);
  for (std::size_t i = kUntold; i + atEnd < signal.frames.size(); ++i) {
    EXPECT_TRUE(score.read[i]) << "frame " << i;
  }
  std::uint32_t counter = kUntold;
  for (const LTCTold& frame : told) {
    EXPECT_EQ(frame.time.mType, type);
    EXPECT_EQ(frame.time.mFlags, kSMPTETimeValid | kSMPTETimeRunning);
    EXPECT_EQ(frame.time.mCounter, counter++);
    EXPECT_NEAR(frame.fps, frameRateOf(type), 0.02);
    const double error = hostTimeErrorOf(signal, frameOf(signal, frame), frame);
    EXPECT_LE(std::abs(error), 1e9 / signal.sampleRate);
  }
}

TEST(LTCDecoder, ReportsEachFrameOfCleanSignalsFromTheThirdOnAtItsTime) {
  for (const double sampleRate : kSampleRates) {
    for (const std::uint32_t type : kTypes) {
      for (const bool inverted : {false, true}) {
        SCOPED_TRACE(std::to_string(sampleRate) + " Hz, format " + std::to_string(type) +
                     (inverted ? ", inverted" : ""));
        const LTCSignalMaker maker{
            .sampleRate = sampleRate, .type = type, .frames = 40, .inverted = inverted};
        expectAllRead(maker.make(), type, 0);
        // Its last edge can lie behind the last sample.
        expectAllRead(signalByLibltc(sampleRate, type, 40, inverted), type, 1);
      }
    }
  }
}

// Signals that are not clean. No wrong frame is reported, and every whole one is.

struct Case {
  const char* name;
  LTCSignalMaker maker;
};

TEST(LTCDecoder, NeitherLevelNorShapeNorSpeedHidesAFrame) {
  const auto wow = [](double time) {
    return 26 * (1 + 0.04 * std::sin(4 * time) + 0.03 * std::sin(56 * time));
  };
  const auto steps = [](double time) { return static_cast<int>(time) % 2 == 0 ? 25.0 : 30.0; };
  const Case cases[] = {
      {"-60 dBFS, 16 bits", {.level = 0.001, .bits = 16}},
      {"DC of 60 % of the level", {.riseTime = 50e-6, .offset = 0.6}},
      {"steps", {.riseTime = 0}},
      {"a narrow band", {.lowPass = 3000, .highPass = 100}},
      {"noise 18 dB below", {.signalToNoise = 18}},
      {"23 fps", {.speed = [](double) { return 23; }}},
      {"30.9 fps", {.speed = [](double) { return 30.9; }}},
      {"steps of speed", {.speed = steps}},
      {"wow and flutter", {.speed = wow}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    LTCSignalMaker maker = each.maker;
    maker.frames = 250;
    const LTCSignal signal = maker.make();
    const LTCScore score = scoreOf(signal, readByVelor(signal, kBuffer));
    EXPECT_EQ(score.wrong, 0U);
    EXPECT_EQ(score.right, maker.frames - kUntold);
  }
}

TEST(LTCDecoder, AfterAGapAllFramesAreReadFromTheFourthWholeOneOnAndNoneIsWrong) {
  constexpr std::size_t kUntoldBehindGap = 3;
  const Case cases[] = {
      {"drop-outs of 20 ms", {.dropOut = 0.02}},
      {"drop-outs of 200 ms", {.dropOut = 0.2}},
      {"splices", {.splice = 0.05}},
      {"xruns", {.xrun = 0.0107}},
      {"long xruns", {.xrun = 0.0853}},
  };
  for (const Case& each : cases) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
      SCOPED_TRACE(each.name + std::string(", seed ") + std::to_string(seed));
      LTCSignalMaker maker = each.maker;
      maker.frames = 200;
      maker.seed = seed;
      const LTCSignal signal = maker.make();
      const LTCScore score = scoreOf(signal, readByVelor(signal, kBuffer));
      EXPECT_EQ(score.wrong, 0U);
      std::size_t whole = 0;
      std::size_t due = 0;
      for (std::size_t i = 0; i < signal.frames.size(); ++i) {
        whole = signal.frames[i].whole ? whole + 1 : 0;
        if (whole > kUntoldBehindGap) {
          ++due;
          EXPECT_TRUE(score.read[i]) << "frame " << i;
        }
      }
      EXPECT_GT(due, signal.frames.size() / 2);
    }
  }
}

TEST(LTCDecoder, AfterASignalThatWasGoneCountRateAndSearchBeginAgain) {
  LTCSignal signal = LTCSignalMaker().make();
  signal.samples.resize(signal.samples.size() + 9600);
  // Edges so slanted that bits are found for a while only from the middle of all rates on.
  const auto fast = [](double) { return 30.9; };
  const auto after =
      LTCSignalMaker{.speed = fast, .riseTime = 200e-6, .offset = 0.26}.make().samples;
  signal.samples.insert(signal.samples.end(), after.begin(), after.end());
  const std::vector<LTCTold> told = readByVelor(signal, kBuffer);
  const auto first =
      std::find_if(told.begin(), told.end(), [](const LTCTold& frame) { return frame.fps > 25.5; });
  ASSERT_GE(told.end() - first, 20);
  EXPECT_EQ(first->time.mCounter, kUntold);
  EXPECT_NEAR(first->fps, 30.9, 0.1);
}

TEST(LTCDecoder, AFrameAfterABrokenOneHasItsHostTimeOrNone) {
  LTCSignal signal = LTCSignalMaker{.type = kSMPTETimeType30}.make();
  for (std::size_t i = 20; i < signal.frames.size(); i += 21) {
    const auto end = signal.samples.begin() + static_cast<std::ptrdiff_t>(signal.frames[i].end);
    std::fill(end - 60, end, 0.5F);
  }
  // In so long a buffer the signal does not count as gone.
  int without = 0;
  for (const LTCTold& frame : readByVelor(signal, 8192)) {
    const auto sent =
        std::find_if(signal.frames.begin(), signal.frames.end(), [&](const LTCSignal::Frame& each) {
          return std::memcmp(&each.time.mHours, &frame.time.mHours, 8) == 0;
        });
    ASSERT_NE(sent, signal.frames.end());
    const double error =
        hostTimeErrorOf(signal, static_cast<std::size_t>(sent - signal.frames.begin()), frame);
    without += frame.hostTime == 0 ? 1 : 0;
    EXPECT_TRUE(frame.hostTime == 0 || std::abs(error) <= 1e9 / signal.sampleRate) << error;
  }
  EXPECT_LE(without, 5);
}

TEST(LTCDecoderCallback, NeverMeetsTheReferenceOfAnother) {
  ltc_decoder* decoder = nullptr;
  ASSERT_EQ(ltc_decoder_create(decoder), 0);
  ASSERT_EQ(ltc_decoder_init(decoder, 1'000'000'000, 48000, 25.0), 0);
  // Each callback knows its own by the type; the reference tells whether it is.
  static std::atomic<int> one{0};
  static std::atomic<int> two{0};
  static std::atomic<int> wrong{0};
  const LTCDecoderCallback toOne = [](const SMPTETime&, const std::uint8_t*, void* refCon,
                                      std::uint64_t, double) { ++(refCon == &one ? one : wrong); };
  const LTCDecoderCallback toTwo = [](const SMPTETime&, const std::uint8_t*, void* refCon,
                                      std::uint64_t, double) { ++(refCon == &two ? two : wrong); };
  const LTCSignal signal = LTCSignalMaker().make();
  std::atomic<bool> done{false};
  std::thread processing([&] {
    double sampleTime = 0;
    while (wrong == 0 && (one < 200 || two < 200)) {
      ltc_decoder_process(*decoder, {sampleTime, 1, 3}, signal.samples.data(),
                          static_cast<std::uint32_t>(signal.samples.size()));
      sampleTime += static_cast<double>(signal.samples.size());
    }
    done = true;
  });
  for (bool turn = false; !done; turn = !turn) {
    ltc_decoder_set_callback(*decoder, turn ? toOne : toTwo, turn ? &one : &two);
    std::this_thread::yield();
  }
  processing.join();
  ltc_decoder_dispose(decoder);
  EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace velor
