// SPDX-License-Identifier: MIT
// What leaves the device, frame for frame, on a simulated host.
#include <gtest/gtest.h>
#include <ltc.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/LTCRun.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
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
    LTCScenario scenario;
    scenario.ppm = ppm;
    LTCRun run(scenario);
    run.start();
    run.run(120);
    expectWhole(run, 120 * 25 - 5);
    EXPECT_EQ(run.first, 2);
    EXPECT_LE(run.settledWorst, 1 + kRounding);
    EXPECT_NEAR(run.generator->deviation(), -ppm * 1e-4, 1e-5);
  }
}

TEST(KVLTCGeneratorPhase, JitterAndLateCallsMoveFramesAndHarmNone) {
  // The phase follows each call, so that a frame moves by no more than twice the
  // jitter, and the one that follows the call's by half of it more.
  for (const std::uint64_t jitter : {kMs / 10, kMs, 2 * kMs}) {
    SCOPED_TRACE(jitter);
    LTCScenario scenario;
    scenario.jitter = jitter;
    scenario.period = 64;
    LTCRun run(scenario);
    run.start();
    run.run(120);
    expectWhole(run, 120 * 25 - 5);
    EXPECT_LE(run.settledWorst, 2.5e-9 * static_cast<double>(jitter) * 48000 + 1);
  }
  // A device that reads far ahead has begun the frames that a call would change: one or
  // two of them, or four.
  for (const std::uint32_t latency : {2048U, 4096U, 6144U}) {
    for (const std::uint64_t jitter : {kMs / 20, kMs / 2, kMs, 2 * kMs}) {
      SCOPED_TRACE(testing::Message() << latency << ", " << jitter);
      LTCScenario scenario;
      scenario.jitter = jitter;
      scenario.period = 1024;
      scenario.latency = latency;
      LTCRun run(scenario);
      run.start();
      run.run(120);
      EXPECT_EQ(run.wrong, 0);
      EXPECT_LE(run.torn(), 1) << "the first, of which the device may have read the beginning";
      EXPECT_EQ(run.silences(), 0);
      EXPECT_GE(run.frames, 120 * 25 - 7);
      EXPECT_LE(run.settledWorst, 8e-9 * static_cast<double>(jitter) * 48000 + 3);
    }
  }
  // Late by less than the two frames that are played before the next call.
  LTCScenario late;
  late.ppm = 100;
  late.lateness = 60 * kMs;
  LTCRun run(late);
  run.start();
  run.run(120);
  EXPECT_EQ(run.wrong, 0);
  EXPECT_LE(run.torn(), 1);  // the very first, when its call is late
  EXPECT_EQ(run.silences(), 0);
  EXPECT_LE(run.settledWorst, 3 + kRounding);  // a frame that has begun stays
}

TEST(KVLTCGeneratorPhase, EveryStartIsAtItsTarget) {
  std::mt19937 random(3);
  LTCScenario scenario;
  scenario.firstFrame = 90000;
  LTCRun run(scenario);
  for (int i = 0; i < 40; ++i) {
    run.host.advance(random() % (40 * kMs));
    run.start();
    run.run(0.6);
    if (i == 0) {
      EXPECT_EQ(run.first, 90002);
      EXPECT_LT(std::fabs(run.onset() - run.dueAt(90002)), 1);
    }
    // Later the first cycle holds what the ring held before, instead of silence.
    EXPECT_LE(run.first, 90003);
    run.stop();
    run.run(1);
    EXPECT_FALSE(run.generator->isGenerating());
  }
  EXPECT_EQ(run.wrong, 0);
  EXPECT_EQ(run.silences(), 40);
  EXPECT_LE(run.worst, 1 + kRounding);
}

// libltc as another reader of the same signal.
struct Decoder {
  explicit Decoder(double samplesPerFrame)
      : decoder(ltc_decoder_create(static_cast<int>(samplesPerFrame), 1024)) {}
  ~Decoder() { ltc_decoder_free(decoder); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  LTCDecoder* const decoder;
};

struct Case {
  std::uint32_t type;
  double rate;
};
class KVLTCGeneratorFormats : public testing::TestWithParam<Case> {};

TEST_P(KVLTCGeneratorFormats, EveryFrameIsThePublishedOneAndAnotherReaderReadsTheSame) {
  LTCScenario scenario;
  scenario.type = GetParam().type;
  scenario.sampleRate = GetParam().rate;
  scenario.userbits = 0x2468ACE1;
  // Over a minute, so that drop formats drop.
  scenario.firstFrame = ltc_frames_per_second(scenario.type) * 3598;
  LTCRun run(scenario);
  run.generator->setLevel(0.5F);  // libltc has no room for the filter's overshoot
  const Decoder reader(scenario.sampleRate * run.frameSeconds());
  std::vector<LTCFrameExt> read;
  run.onSamples = [&](std::vector<float>& samples) {
    ltc_decoder_write_float(reader.decoder, samples.data(), samples.size(), 0);
    for (LTCFrameExt frame; ltc_decoder_read(reader.decoder, &frame) > 0;) {
      read.push_back(frame);
    }
  };
  run.start();
  run.run(4);
  expectWhole(run, static_cast<std::int64_t>(4 / run.frameSeconds()) - 5);
  EXPECT_LE(run.settledWorst, 1 + kRounding);
  ASSERT_GT(read.size(), 88U);
  // It may begin at the first frame or at the second.
  std::int32_t number = run.first;
  for (const LTCFrameExt& frame : read) {
    PublishedBits bits{};
    std::array<std::uint8_t, 10> bytes{};
    std::memcpy(bytes.data(), &frame.ltc, bytes.size());
    for (std::size_t i = 0; i < bits.size(); ++i) {
      bits[i] = bytes[i / 8] >> i % 8 & 1U;
    }
    const auto expected = [&](std::int32_t n) {
      return publishedLTC(ltc_smptetime_from_frame_number(n, scenario.type),
                          {0xE1, 0xAC, 0x68, 0x24});
    };
    number += number == run.first && bits != expected(number) ? 1 : 0;
    ASSERT_EQ(publishedText(bits), publishedText(expected(number))) << "frame " << number;
    ++number;
  }
}

std::vector<Case> cases() {
  std::vector<Case> all;
  for (const std::uint32_t type :
       {kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType30Drop, kSMPTETimeType30,
        kSMPTETimeType2997, kSMPTETimeType2997Drop, kSMPTETimeType2398}) {
    for (const double rate : {44100.0, 48000.0, 88200.0, 96000.0, 192000.0}) {
      all.push_back({type, rate});
    }
  }
  return all;
}
INSTANTIATE_TEST_SUITE_P(All, KVLTCGeneratorFormats, testing::ValuesIn(cases()),
                         [](const auto& each) {
                           return "Format" + std::to_string(each.param.type) + "At" +
                                  std::to_string(static_cast<int>(each.param.rate));
                         });

}  // namespace
}  // namespace velor
