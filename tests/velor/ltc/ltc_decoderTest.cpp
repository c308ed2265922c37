// SPDX-License-Identifier: MIT
#include "Velor/ltc/ltc_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Realtime.h"
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

struct Call {
  SMPTETime time;
  std::array<std::uint8_t, 4> userBits{};
  std::uint64_t hostTime = 0;
  double fps = 0;

  bool operator==(const Call& other) const {
    return std::memcmp(&time, &other.time, sizeof time) == 0 && userBits == other.userBits &&
           hostTime == other.hostTime && fps == other.fps;
  }
};

class Calls {
 public:
  Calls() { mCalls.reserve(10000); }
  static void add(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
                  std::uint64_t hostTime, double fps) {
    Call call{time, {}, hostTime, fps};
    std::copy_n(userBits, call.userBits.size(), call.userBits.begin());
    static_cast<Calls*>(refCon)->mCalls.push_back(call);
  }
  std::vector<Call> mCalls;
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

// Against the definition, sample by sample, without a thought of speed.

class BySample {
 public:
  explicit BySample(double sampleRate)
      : mSampleRate(sampleRate),
        mTicks(static_cast<std::uint64_t>(1e9 / sampleRate)),
        mSamplesPerBit(static_cast<float>(sampleRate / 25.0 / 80.0)) {}

  void process(double sampleTime, std::uint64_t hostNow, const float* samples, std::size_t count) {
    auto n = static_cast<std::uint64_t>(sampleTime);
    for (std::size_t i = 0; i < count; ++i, ++n, hostNow += mTicks) {
      const bool sign = std::signbit(samples[i]);
      if (sign == mLastSign) {
        continue;
      }
      mLastSign = sign;
      const auto delta = static_cast<float>(n - mLastEdge);
      const std::uint64_t frameTime = mLastEdgeTime;
      mLastEdge = n;
      mLastEdgeTime = hostNow;
      const float toFull = std::fabs(1 - delta / mSamplesPerBit);
      const float toHalf = std::fabs(1 - delta / (mSamplesPerBit * 0.5F));
      if (toHalf > toFull) {
        push(0, n, frameTime);
      } else if (toFull > toHalf) {
        if (!mHalf) {
          mHalf = true;
        } else {
          push(1, n, frameTime);
        }
      }
    }
    if (mLastGood != 0 && mLastGood + static_cast<std::uint64_t>(mSampleRate / 20.0) < n) {
      mLastGood = 0;
      mLastFrame = 0;
      mSamplesPerBit = static_cast<float>(mSampleRate / 27.5 / 80.0);
      mClock = 27.5;
      mAverage = 0;
      mTime.mCounter = 0;
    }
  }

  std::vector<Call> mCalls;

 private:
  void push(std::uint8_t bit, std::uint64_t n, std::uint64_t hostTime) {
    mHalf = false;
    if (!ltc_frame_push_bit(*mFrame, bit, hostTime)) {
      return;
    }
    std::array<std::uint8_t, 4> user{};
    std::uint8_t drop = 0;
    if (ltc_frame_decode(*mFrame, mTime, user.data(), drop) != 0) {
      ltc_frame_reset(mFrame.get());
      return;
    }
    const std::uint64_t before = std::exchange(mLastFrame, n);
    if (before == 0) {
      return;
    }
    auto length = static_cast<double>(n - before);
    if (mAverage != 0) {
      length = 0.1 * length + 0.9 * mAverage;
    }
    const double fps = std::round(mSampleRate * 1000 / length) / 1000;
    const bool plausible = fps >= 23 && fps <= 31;
    mAverage = plausible ? length : 0;
    if (!plausible) {
      return;
    }
    ltc_detect_frame_format(mTime, drop, fps);
    mLastGood = n;
    if (std::fabs(1 - std::fabs(mClock) / fps) > 0.01) {
      mSamplesPerBit = static_cast<float>(mSampleRate / fps / 80.0);
      mClock = fps;
    }
    if (ltc_is_valid(mTime)) {
      mCalls.push_back({mTime, user, hostTime, fps});
    }
  }

  struct Destroy {
    void operator()(ltc_frame* frame) const { ltc_frame_destroy(frame); }
  };
  const double mSampleRate;
  const std::uint64_t mTicks;
  const std::unique_ptr<ltc_frame, Destroy> mFrame{ltc_frame_create()};
  float mSamplesPerBit;
  double mClock = 25;
  bool mLastSign = false;
  bool mHalf = false;
  std::uint64_t mLastEdge = 0;
  std::uint64_t mLastEdgeTime = 0;
  std::uint64_t mLastFrame = 0;
  std::uint64_t mLastGood = 0;
  double mAverage = 0;
  SMPTETime mTime;
};

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
    BySample reference(sampleRate);
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
    EXPECT_TRUE(calls.mCalls == reference.mCalls)
        << calls.mCalls.size() << " and " << reference.mCalls.size();
    compared += reference.mCalls.size();
  }
  EXPECT_GT(compared, 1000U);
}

}  // namespace
}  // namespace velor
