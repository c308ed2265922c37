// SPDX-License-Identifier: MIT
// What leaves the device, frame for frame, on a simulated host.
#include <gtest/gtest.h>
#include <ltc.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "tests/support/LTCRun.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr int kSeconds = 50;        // of a long run
constexpr double kRounding = 1e-3;  // of samples, by ns and by the reading of edges

void expectWhole(const LTCRun& run, std::int64_t atLeast) {
  EXPECT_EQ(run.wrong, 0);
  EXPECT_EQ(run.torn(), 0);
  EXPECT_EQ(run.silences(), 0);
  EXPECT_GE(run.frames, atLeast);
}

TEST(KVLTCGeneratorPhase, FramesLeaveWhenTheyAreDueWhateverTheDevicesClock) {
  for (const double ppm : {0.0, 20.0, -20.0, 100.0, -100.0, 300.0, -300.0}) {
    SCOPED_TRACE(ppm);
    LTCRun run({.ppm = ppm});
    run.start();
    run.run(kSeconds);
    expectWhole(run, kSeconds * 25 - 5);
    EXPECT_EQ(run.first, 2);
    EXPECT_LE(run.settledWorst, 1 + kRounding);
    EXPECT_NEAR(run.generator->deviation(), -ppm * 1e-4, 1e-5);
  }
}

TEST(KVLTCGeneratorPhase, JitterAndLateCallsMoveFramesAndHarmNone) {
  // With the samples that a frame is off at worst. Late by less than the two frames that are
  // played before the next call; a frame that has begun stays.
  std::vector<std::pair<LTCScenario, double>> cases = {{{.ppm = 100, .lateness = 60 * kMs}, 3.5}};
  for (const std::uint64_t jitter : {kMs / 20, kMs / 2, kMs, 2 * kMs}) {
    const double samples = static_cast<double>(jitter) * 1e-9 * 48000;
    // The phase follows each call, so that a frame moves by no more than twice the
    // jitter, and the one that follows the call's by half of it more.
    cases.push_back({{.jitter = jitter, .period = 64}, 2.5 * samples + 1});
    // A device that reads far ahead has begun the frames that a call would change: one or
    // two of them, or four.
    for (const std::uint32_t latency : {2048U, 4096U, 6144U}) {
      cases.push_back({{.jitter = jitter, .latency = latency, .period = 1024}, 8 * samples + 3});
    }
  }
  for (const auto& [scenario, worst] : cases) {
    SCOPED_TRACE(testing::Message() << scenario.latency << ' ' << scenario.jitter);
    LTCRun run(scenario);
    run.start();
    run.run(kSeconds);
    EXPECT_EQ(run.wrong, 0);
    // The first, of which the device may have read the beginning.
    EXPECT_LE(run.torn(), scenario.period == 64 ? 0 : 1);
    EXPECT_EQ(run.silences(), 0);
    EXPECT_GE(run.frames, kSeconds * 25 - 7);
    EXPECT_LE(run.settledWorst, worst);
  }
}

TEST(KVLTCGeneratorPhase, EveryStartIsAtItsTarget) {
  std::mt19937 random(3);
  LTCRun run({.firstFrame = 90000});
  for (int i = 0; i < 40; ++i) {
    run.host.advance(random() % (40 * kMs));
    run.start();
    run.run(0.6);
    // Out of silence: nothing is left of the stream before.
    EXPECT_EQ(run.first, 90002);
    EXPECT_LT(std::fabs(run.onset() - run.dueAt(90002)), 1);
    run.stop();
    run.run(1);
    EXPECT_FALSE(run.generator->isGenerating());
  }
  EXPECT_EQ(run.wrong, 0);
  EXPECT_EQ(run.silences(), 40);
  EXPECT_LE(run.worst, 1 + kRounding);
}

// libltc takes whatever ends with a sync word, so it would read a frame that a jump has
// put together of two.
class LibltcReader {
 public:
  explicit LibltcReader(double samplesPerFrame)
      : mReader(::ltc_decoder_create(static_cast<int>(samplesPerFrame), 1024),
                &::ltc_decoder_free) {}

  std::vector<LTCFrame> read(std::vector<float>& samples) {
    ::ltc_decoder_write_float(mReader.get(), samples.data(), samples.size(), 0);
    std::vector<LTCFrame> frames;
    for (LTCFrameExt frame; ::ltc_decoder_read(mReader.get(), &frame) > 0;) {
      frames.push_back(frame.ltc);
    }
    return frames;
  }

 private:
  const std::unique_ptr<LTCDecoder, decltype(&::ltc_decoder_free)> mReader;
};

std::int32_t numberAt25(LTCFrame frame) {
  SMPTETimecode time;
  ::ltc_frame_to_time(&time, &frame, 0);
  return ((time.hours * 60 + time.mins) * 60 + time.secs) * 25 + time.frame;
}

TEST(KVLTCGeneratorPhase, AJumpOfDigitsOrUserBitsTearsAndMixesNoFrame) {
  std::mt19937 random(7);
  for (const std::uint32_t period : {64U, 128U, 256U, 512U, 1024U, 2048U}) {
    for (const std::uint32_t latency : {0U, 2 * period, 6144U}) {
      for (const std::uint64_t jitter : {0 * kMs, kMs, 3 * kMs}) {
        SCOPED_TRACE(testing::Message() << period << ' ' << latency << ' ' << jitter);
        const LTCScenario scenario = {.jitter = jitter, .latency = latency, .period = period};
        LTCRun run(scenario);
        run.start();
        run.run(0.5);
        const int torn = run.torn();  // a device that reads ahead has begun the first frame
        double seconds = 0.5;
        for (int i = 0; i < 20; ++i) {
          run.jump(static_cast<std::int32_t>(random() % 2'000'000),
                   i % 2 == 0 ? scenario.userbits : static_cast<std::uint32_t>(random()));
          const double rest = 0.3 + 1e-3 * static_cast<double>(random() % 100);
          run.run(rest);
          seconds += rest;
        }
        EXPECT_EQ(run.wrong, 0);
        EXPECT_EQ(run.torn(), torn);
        EXPECT_EQ(run.silences(), 0);
        EXPECT_GE(run.frames, static_cast<std::int64_t>(seconds * 25) - 7);
      }
    }
  }
}

// The restart cuts one frame off.
TEST(KVLTCGeneratorPhase, AJumpOffTheGridOfTwoFramesMixesNoFrame) {
  std::mt19937 random(7);
  constexpr int kJumps = 40;
  for (const std::uint32_t period : {64U, 256U, 1024U, 2048U}) {
    for (const std::uint32_t latency : {0U, 2 * period}) {
      const LTCScenario scenario = {.latency = latency, .period = period};
      LTCRun run(scenario);
      run.generator->setLevel(0.5F);
      std::int32_t begin = 0;
      std::int32_t last = 0;
      int read = 0;
      LibltcReader reader(1920);
      run.onSamples = [&](std::vector<float>& samples) {
        for (const LTCFrame& frame : reader.read(samples)) {
          const std::int32_t number = numberAt25(frame);
          EXPECT_TRUE((number > last && number < last + 4) ||
                      (number >= begin + 2 && number < begin + 8))
              << number << " after " << last << " and a jump to " << begin << ", period " << period;
          last = number;
          ++read;
        }
      };
      run.start();
      for (int i = 0; i < kJumps; ++i) {
        run.run(0.5);
        begin = static_cast<std::int32_t>(random() % 2'000'000);
        run.jump(
            begin, scenario.userbits,
            static_cast<std::int64_t>(random() % (80 * kMs)) - static_cast<std::int64_t>(40 * kMs));
      }
      EXPECT_GT(read, static_cast<int>(kJumps * (0.5 * 25 - 1)));
    }
  }
}

TEST(KVLTCGeneratorPhase, EveryFrameOfEachFormatIsThePublishedOneAndLibltcReadsAsMany) {
  for (const std::uint32_t type :
       {kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType30Drop, kSMPTETimeType30,
        kSMPTETimeType2997, kSMPTETimeType2997Drop, kSMPTETimeType2398}) {
    for (const double sampleRate : {44100.0, 48000.0, 88200.0, 96000.0, 192000.0}) {
      SCOPED_TRACE(testing::Message() << type << " at " << sampleRate);
      // Over the first minute, at which drop formats leave out two numbers.
      LTCRun run({.type = type,
                  .sampleRate = sampleRate,
                  .firstFrame = ltc_frames_per_second(type) * 58,
                  .userbits = 0x2468ACE1});
      run.generator->setLevel(0.5F);  // libltc has no room for the filter's overshoot
      LibltcReader reader(sampleRate * run.frameSeconds());
      std::size_t read = 0;
      run.onSamples = [&](std::vector<float>& samples) { read += reader.read(samples).size(); };
      run.start();
      run.run(4);
      expectWhole(run, static_cast<std::int64_t>(4 / run.frameSeconds()) - 5);
      EXPECT_LE(run.settledWorst, 1 + kRounding);
      EXPECT_GE(read + 2, static_cast<std::size_t>(run.frames));
    }
  }
}

}  // namespace
}  // namespace velor
