// SPDX-License-Identifier: MIT
#include "Velor/ltc/ltc_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Realtime.h"
#include "tests/support/LTCBySample.h"
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

struct Dispose {
  void operator()(ltc_decoder* decoder) const { ltc_decoder_dispose(decoder); }
};
using Decoder = std::unique_ptr<ltc_decoder, Dispose>;

Decoder newDecoder(double sampleRate = 48000) {
  ltc_decoder* decoder = nullptr;
  EXPECT_EQ(ltc_decoder_create(decoder), 0);
  EXPECT_EQ(ltc_decoder_init(decoder, 1'000'000'000, sampleRate, 25.0), 0);
  return Decoder(decoder);
}

class Calls {
 public:
  Calls() { mCalls.reserve(10000); }  // nothing allocates in a real-time scope
  static void add(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
                  std::uint64_t hostTime, double fps) {
    LTCCall call{time, {}, hostTime, fps};
    std::copy_n(userBits, call.userBits.size(), call.userBits.begin());
    static_cast<Calls*>(refCon)->mCalls.push_back(call);
  }
  std::vector<LTCCall> mCalls;
};

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

TEST(LTCDecoder, TellsEachFrameOfCleanSignalsFromTheThirdOnAtItsTime) {
  for (const double sampleRate : kSampleRates) {
    for (const std::uint32_t type : kTypes) {
      for (const bool inverted : {false, true}) {
        SCOPED_TRACE(std::to_string(sampleRate) + " Hz, format " + std::to_string(type) +
                     (inverted ? ", inverted" : ""));
        LTCSignalMaker maker;
        maker.sampleRate = sampleRate;
        maker.type = type;
        maker.frames = 40;
        maker.inverted = inverted;
        expectAllRead(maker.make(), type, 0);
        // Its last edge can lie behind the last sample.
        expectAllRead(signalByLibltc(sampleRate, type, 40, inverted), type, 1);
      }
    }
  }
}

// A signal that is whole, noisy, broken, too slow or too fast, by the second; with all
// that has a sign among its samples.
std::vector<float> anySignal(double sampleRate, std::mt19937& random) {
  std::vector<float> samples;
  for (int part = 0; part < 12; ++part) {
    LTCSignalMaker maker;
    maker.sampleRate = sampleRate;
    maker.type = kTypes[random() % kTypes.size()];
    maker.frames = 5 + random() % 30;
    maker.seed = static_cast<std::uint32_t>(random());
    maker.signalToNoise = std::array{0.0, 6.0, 12.0, 18.0, 30.0}[random() % 5];
    maker.riseTime = random() % 2 == 0 ? 0 : 50e-6;
    const double rate = std::array{22.0, 23.0, 24.5, 27.5, 31.0, 32.0}[random() % 6];
    if (random() % 2 == 0) {
      maker.speed = [rate](double) { return rate; };
    }
    const std::vector<float> signal = maker.make().samples;
    samples.insert(samples.end(), signal.begin(), signal.end());
    samples.insert(samples.end(), random() % 5000, random() % 2 == 0 ? 0.0F : -0.0F);
  }
  constexpr std::array<float, 6> kOdd = {0.0F,
                                         -0.0F,
                                         std::numeric_limits<float>::infinity(),
                                         -std::numeric_limits<float>::infinity(),
                                         std::numeric_limits<float>::quiet_NaN(),
                                         -std::numeric_limits<float>::quiet_NaN()};
  for (int i = 0; i < 40; ++i) {
    samples[random() % samples.size()] = kOdd[random() % kOdd.size()];
  }
  return samples;
}

TEST(LTCDecoder, TellsWhatTheDefinitionSampleBySampleTells) {
  std::size_t compared = 0;
  for (std::uint32_t seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const double sampleRate = kSampleRates[random() % kSampleRates.size()];
    const std::vector<float> samples = anySignal(sampleRate, random);
    const Decoder decoder = newDecoder(sampleRate);
    Calls calls;
    ltc_decoder_set_callback(*decoder, Calls::add, &calls);
    LTCBySample reference(sampleRate);
    const std::size_t longest = std::array{5U, 100U, 700U, 5000U}[random() % 4];
    auto sampleTime = static_cast<double>(random() % 100000);
    for (std::size_t i = 0; i < samples.size();) {
      const std::size_t count = std::min(samples.size() - i, std::size_t{random()} % longest);
      audio::AudioTimeStamp timeStamp;
      timeStamp.mSampleTime = sampleTime;
      timeStamp.mHostTime = random();
      {
        const host::RealtimeContext realtime;
        EXPECT_EQ(ltc_decoder_process(*decoder, timeStamp, samples.data() + i,
                                      static_cast<std::uint32_t>(count)),
                  0);
      }
      reference.process(sampleTime, timeStamp.mHostTime, samples.data() + i, count);
      i += count;
      sampleTime += static_cast<double>(count);
      switch (random() % (400000 / longest)) {
        case 0:  // samples lost
          sampleTime += static_cast<double>(random() % 20000);
          break;
        case 1:  // a device that began anew
          sampleTime = std::floor(sampleTime / 2);
          break;
        default:
          break;
      }
    }
    EXPECT_TRUE(calls.mCalls == reference.calls())
        << calls.mCalls.size() << " and " << reference.calls().size();
    compared += reference.calls().size();
  }
  EXPECT_GT(compared, 1000U);
}

// Signals that are not clean. Wrong ones are never told; what is in order is.

struct Case {
  const char* name;
  std::function<void(LTCSignalMaker&)> change;
};

TEST(LTCDecoder, NeitherLevelNorShapeNorSpeedHidesAFrame) {
  const auto speed = [](double rate) {
    return [rate](LTCSignalMaker& maker) { maker.speed = [rate](double) { return rate; }; };
  };
  const Case cases[] = {
      {"-60 dBFS, 16 bits",
       [](LTCSignalMaker& maker) {
         maker.level = 0.001;
         maker.bits = 16;
       }},
      {"DC of 60 % of the level",
       [](LTCSignalMaker& maker) {
         maker.offset = 0.6;
         maker.riseTime = 50e-6;
       }},
      {"steps", [](LTCSignalMaker& maker) { maker.riseTime = 0; }},
      {"a narrow band",
       [](LTCSignalMaker& maker) {
         maker.highPass = 100;
         maker.lowPass = 3000;
       }},
      {"noise 18 dB below", [](LTCSignalMaker& maker) { maker.signalToNoise = 18; }},
      {"23 fps", speed(23)},
      {"27 fps", speed(27)},
      {"30.9 fps", speed(30.9)},
      {"steps of speed",
       [](LTCSignalMaker& maker) {
         maker.speed = [](double time) { return static_cast<int>(time) % 2 == 0 ? 25.0 : 30.0; };
       }},
      {"wow and flutter",
       [](LTCSignalMaker& maker) {
         maker.speed = [](double time) {
           return 26 * (1 + 0.04 * std::sin(4 * time) + 0.03 * std::sin(56 * time));
         };
       }},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    LTCSignalMaker maker;
    maker.frames = 250;
    each.change(maker);
    const LTCSignal signal = maker.make();
    const LTCScore score = scoreOf(signal, readByVelor(signal, kBuffer));
    EXPECT_EQ(score.wrong, 0U);
    EXPECT_EQ(score.right, maker.frames - kUntold);
  }
}

TEST(LTCDecoder, BehindAGapNothingIsToldLateAndFromTheFourthWholeFrameOnAllAre) {
  constexpr std::size_t kUntoldBehindGap = 3;
  const Case cases[] = {
      {"drop-outs of 20 ms", [](LTCSignalMaker& maker) { maker.dropOut = 0.02; }},
      {"drop-outs of 200 ms", [](LTCSignalMaker& maker) { maker.dropOut = 0.2; }},
      {"splices", [](LTCSignalMaker& maker) { maker.splice = 0.05; }},
      {"xruns", [](LTCSignalMaker& maker) { maker.xrun = 0.0107; }},
      {"long xruns", [](LTCSignalMaker& maker) { maker.xrun = 0.0853; }},
  };
  for (const Case& each : cases) {
    for (std::uint32_t seed = 1; seed <= 10; ++seed) {
      SCOPED_TRACE(each.name + std::string(", seed ") + std::to_string(seed));
      LTCSignalMaker maker;
      maker.frames = 200;
      maker.seed = seed;
      each.change(maker);
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

TEST(LTCDecoder, NoiseAndMusicAreNoTimecode) {
  std::mt19937 random(5);
  std::normal_distribution<float> noise;
  LTCSignal signal;
  signal.sampleRate = 48000;
  double phase = 0;
  for (int i = 0; i < 48000 * 60; ++i) {
    const double time = i / 48000.0;
    // Notes in the range of its bits, with an octave above them.
    const double pitch = 600 * std::exp2(static_cast<int>(time * 8) % 24 / 12.0);
    phase += 6.283185307 * pitch / 48000;
    const auto tone = static_cast<float>(std::sin(phase) + 0.7 * std::sin(2 * phase + 1));
    const float share = static_cast<float>(i / 48000 % 3) * 0.5F;
    signal.samples.push_back((1 - share) * tone + share * noise(random));
  }
  EXPECT_THAT(readByVelor(signal, kBuffer), testing::IsEmpty());
}

// Bits one by one, at 48 kHz and 25 frames per second.

using Bits = std::vector<std::uint8_t>;

constexpr std::size_t kSamplesPerHalf = 12;
constexpr std::uint64_t kTicks = 20833;

Bits frameBits(int frames) {
  ltc_frame* const frame = ltc_frame_create();
  SMPTETime time;
  time.mType = kSMPTETimeType30;
  ltc_set_time(time, 1, 2, 3, frames);
  ltc_frame_encode(*frame, time, nullptr);
  Bits bits(kLTCFrameBits);
  ltc_frame_copy_bits(*frame, bits.data());
  ltc_frame_destroy(frame);
  return bits;
}

class Player {
 public:
  Player() { ltc_decoder_set_callback(*mDecoder, Calls::add, &mCalls); }

  void play(const Bits& bits, std::size_t samplesPerHalf = kSamplesPerHalf) {
    std::vector<float> samples;
    for (const std::uint8_t bit : bits) {
      mLevel = -mLevel;
      samples.insert(samples.end(), samplesPerHalf, mLevel);
      mLevel = bit != 0 ? -mLevel : mLevel;
      samples.insert(samples.end(), samplesPerHalf, mLevel);
    }
    process(samples);
  }
  void playFrames(int first, int count, std::size_t samplesPerHalf = kSamplesPerHalf) {
    for (int i = 0; i < count; ++i) {
      play(frameBits(first + i), samplesPerHalf);
    }
  }
  void hold(std::size_t count) { process(std::vector<float>(count, mLevel)); }

  /// The digits of the frames told since the last question.
  std::vector<int> frames() {
    std::vector<int> result;
    for (; mSeen < mCalls.mCalls.size(); ++mSeen) {
      result.push_back(mCalls.mCalls[mSeen].time.mFrames);
    }
    return result;
  }
  const LTCCall& last() const { return mCalls.mCalls.back(); }
  ltc_decoder& decoder() { return *mDecoder; }
  std::uint64_t now() const { return mPosition * kTicks; }

 private:
  void process(const std::vector<float>& samples) {
    audio::AudioTimeStamp timeStamp;
    timeStamp.mSampleTime = static_cast<double>(mPosition);
    timeStamp.mHostTime = now();
    const host::RealtimeContext realtime;
    ltc_decoder_process(*mDecoder, timeStamp, samples.data(),
                        static_cast<std::uint32_t>(samples.size()));
    mPosition += samples.size();
  }

  const Decoder mDecoder = newDecoder();
  Calls mCalls;
  std::size_t mSeen = 0;
  std::uint64_t mPosition = 1'000'000;
  float mLevel = -0.5F;
};

// A frame is complete when the next one begins.

TEST(LTCDecoderStates, ASignalThatStopsBeginsAnew) {
  Player player;
  player.playFrames(0, 10);
  EXPECT_THAT(player.frames(), testing::ElementsAre(2, 3, 4, 5, 6, 7, 8));
  EXPECT_EQ(player.last().time.mCounter, 8U);
  // The end of frame 9 is seen with the next signal, when its last bit has become too long.
  player.hold(2400);
  player.playFrames(0, 6);
  EXPECT_THAT(player.frames(), testing::ElementsAre(2, 3, 4));
  EXPECT_EQ(player.last().time.mCounter, 4U);
}

TEST(LTCDecoderStates, TheFirstFrameBehindAMissedSyncWordHasNoTime) {
  constexpr std::size_t k30 = 10;  // samples a half bit of 30 frames per second
  Player player;
  player.playFrames(0, 8, k30);
  EXPECT_THAT(player.frames(), testing::ElementsAre(2, 3, 4, 5, 6));
  const std::uint64_t begin = player.now();
  // In one buffer, at the end of which alone a pause is looked for.
  Bits bits = frameBits(8);
  bits[70] = 0;
  for (int i = 9; i <= 11; ++i) {
    const Bits more = frameBits(i);
    bits.insert(bits.end(), more.begin(), more.end());
  }
  player.play(bits, k30);
  EXPECT_THAT(player.frames(), testing::ElementsAre(7, 10));
  EXPECT_EQ(player.last().hostTime, 0U);
  player.playFrames(12, 1, k30);
  EXPECT_THAT(player.frames(), testing::ElementsAre(11));
  EXPECT_EQ(player.last().hostTime, begin + (3 * 160 - 1) * k30 * kTicks);
}

TEST(LTCDecoderStates, OutsideOf23To31FramesPerSecondNothingIsTold) {
  for (const double rate : {22.0, 22.9, 31.2, 32.0, 50.0}) {
    LTCSignalMaker maker;
    maker.speed = [rate](double) { return rate; };
    EXPECT_THAT(readByVelor(maker.make(), kBuffer), testing::IsEmpty()) << rate;
  }
  Player backwards;
  for (int i = 0; i < 10; ++i) {
    Bits bits = frameBits(i);
    std::reverse(bits.begin(), bits.end());
    backwards.play(bits);
  }
  EXPECT_THAT(backwards.frames(), testing::IsEmpty());
}

TEST(LTCDecoderStates, ADamagedFrameWithItsSyncWordIsToldAsItStands) {
  Player player;
  player.playFrames(0, 5);
  Bits above9 = frameBits(5);
  std::fill_n(above9.begin() + kLTCSecondUnits.first, kLTCSecondUnits.width, std::uint8_t{1});
  player.play(above9);
  Bits above29 = frameBits(0);
  std::fill_n(above29.begin() + kLTCFrameTens.first, kLTCFrameTens.width, std::uint8_t{1});
  above29[kLTCDropFlag.first] = 1;
  player.play(above29);
  EXPECT_THAT(player.frames(), testing::ElementsAre(2, 3, 4, 5));
  EXPECT_EQ(player.last().time.mSeconds, 15);
  player.playFrames(7, 1);
  EXPECT_THAT(player.frames(), testing::ElementsAre(30));
  EXPECT_EQ(player.last().time.mType, kSMPTETimeType25);
}

TEST(LTCDecoderCallback, IsTheLastOneSetAndEachBeginsANewMeasurement) {
  Player player;
  player.playFrames(0, 10, 10);
  EXPECT_DOUBLE_EQ(player.last().fps, 30);
  // Smoothed, a step of the speed shows by and by.
  player.playFrames(10, 2);
  EXPECT_THAT(player.last().fps, testing::AllOf(testing::Gt(29), testing::Lt(30)));
  LTCDecoderCallback callback = nullptr;
  void* refCon = nullptr;
  EXPECT_EQ(ltc_decoder_get_callback(&player.decoder(), callback, refCon), 0);
  EXPECT_EQ(callback, &Calls::add);
  EXPECT_EQ(ltc_decoder_set_callback(player.decoder(), callback, refCon), 0);
  player.playFrames(12, 1);
  EXPECT_DOUBLE_EQ(player.last().fps, 25);

  EXPECT_EQ(ltc_decoder_set_callback(player.decoder(), nullptr, nullptr), 0);
  player.frames();
  player.playFrames(13, 5);
  EXPECT_THAT(player.frames(), testing::IsEmpty());
  EXPECT_EQ(ltc_decoder_get_callback(nullptr, callback, refCon), kLTCDecoderNullArgument);
}

TEST(LTCDecoderCallback, WhatDoesNotWorkIsRefused) {
  EXPECT_EQ(ltc_decoder_init(nullptr, 1, 48000, 25), kLTCDecoderNullArgument);
  ltc_decoder* decoder = nullptr;
  ASSERT_EQ(ltc_decoder_create(decoder), 0);
  const Decoder owner(decoder);
  EXPECT_EQ(ltc_decoder_init(decoder, 0, 48000, 25), kLTCDecoderNullArgument);
  EXPECT_EQ(ltc_decoder_init(decoder, 1, 0, 25), kLTCDecoderNullArgument);
  EXPECT_EQ(ltc_decoder_init(decoder, 1, 48000, std::nan("")), kLTCDecoderNullArgument);
  ltc_decoder_dispose(nullptr);
}

TEST(LTCDecoderCallback, NeverMeetsTheReferenceOfAnother) {
  const Decoder decoder = newDecoder();
  struct Count {
    std::atomic<int> right{0};
    std::atomic<int> wrong{0};
  };
  // Each callback knows its own by the type; the reference tells whether it is.
  static Count one;
  static Count two;
  const LTCDecoderCallback toOne = [](const SMPTETime&, const std::uint8_t*, void* refCon,
                                      std::uint64_t,
                                      double) { ++(refCon == &one ? one.right : one.wrong); };
  const LTCDecoderCallback toTwo = [](const SMPTETime&, const std::uint8_t*, void* refCon,
                                      std::uint64_t,
                                      double) { ++(refCon == &two ? two.right : two.wrong); };
  const LTCSignal signal = LTCSignalMaker().make();
  std::atomic<bool> done{false};
  std::thread processing([&] {
    double sampleTime = 0;
    while (one.right + one.wrong < 200 || two.right + two.wrong < 200) {
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
  EXPECT_EQ(one.wrong + two.wrong, 0);
}

}  // namespace
}  // namespace velor
