// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kvtimecode/ltc_utils.h"
#include "platform/host/Realtime.h"
#include "tests/support/LTCTime.h"
#include "tests/support/PublishedLTC.h"

namespace velor {
namespace {

using Bits = PublishedBits;
using UserBytes = PublishedUserBytes;

constexpr std::array<std::uint32_t, 7> kTypes = {
    kSMPTETimeType24,   kSMPTETimeType25,       kSMPTETimeType30Drop, kSMPTETimeType30,
    kSMPTETimeType2997, kSMPTETimeType2997Drop, kSMPTETimeType2398};

struct Free {
  void operator()(ltc_frame* frame) const { ltc_frame_destroy(frame); }
};
using Frame = std::unique_ptr<ltc_frame, Free>;
Frame newFrame() {
  return Frame(ltc_frame_create());
}

Bits bitsOf(ltc_frame& frame) {
  Bits bits{};
  ltc_frame_copy_bits(frame, bits.data());
  return bits;
}

template <class Row>
bool pushAll(ltc_frame& frame, const Row& bits, std::uint64_t& hostTime) {
  bool completed = false;
  for (const std::uint8_t bit : bits) {
    completed = ltc_frame_push_bit(frame, bit, hostTime);
  }
  return completed;
}

constexpr std::array<std::uint8_t, 16> kSync = {0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1};

Frame openFrame() {
  Frame frame = newFrame();
  std::uint64_t hostTime = 0;
  EXPECT_FALSE(pushAll(*frame, kSync, hostTime));
  return frame;
}

TEST(LTCFrameBits, EachFrameOfADayIsThePublishedOneAndIsReadBack) {
  std::mt19937 random(1);
  const Frame written = newFrame();
  const Frame read = openFrame();
  int faults = 0;
  for (const std::uint32_t type : kTypes) {
    const int day = ltc_type_is_drop(type) ? 2589408 : ltc_frames_per_second(type) * 86400;
    int n = 0;
    for (; n < day; n += 89) {  // a prime, so that each digit meets each other
      const SMPTETime time = ltc_smptetime_from_frame_number(n, type);
      UserBytes user{};
      for (std::uint8_t& byte : user) {
        byte = static_cast<std::uint8_t>(random());
      }
      const Bits expected = publishedLTC(time, user);
      Bits bits{};
      bool holds = false;
      {
        const host::RealtimeContext realtime;  // an allocation ends the program
        ltc_frame_encode(*written, time, user.data());
        ltc_frame_copy_bits(*written, bits.data());
        SMPTETime back;
        back.mType = type;
        back.mFlags = kSMPTETimeValid;
        UserBytes userBack{};
        std::uint8_t drop = 2;
        std::uint64_t hostTime = 0;
        holds = bits == expected && pushAll(*read, expected, hostTime) &&
                ltc_frame_decode(*read, back, userBack.data(), drop) == 0 &&
                ltc_identical(back, time) && userBack == user &&
                drop == (type == 2 || type == 5 ? 1 : 0);
      }
      if (!holds && ++faults < 5) {
        ADD_FAILURE() << "frame " << n << " of format " << type << "\n  is     "
                      << publishedText(bits) << "\n  not    " << publishedText(expected)
                      << "\n  or is read wrong";
      }
    }
    EXPECT_GT(n, 2000000);
  }
  EXPECT_EQ(faults, 0);
}

// Reading.

TEST(LTCFrameReading, AFrameBeginsAfterASyncWordAndEveryEightyBitsFromThere) {
  const Bits bits = publishedLTC(timeOf(kSMPTETimeType25, 12, 34, 56, 7), {});
  const Frame frame = newFrame();
  std::uint64_t time = 5;
  // A cut frame, up to its sync word.
  for (std::size_t i = 41; i < 80; ++i) {
    EXPECT_FALSE(ltc_frame_push_bit(*frame, bits[i], time));
  }
  for (std::uint64_t n = 1; n <= 4; ++n) {
    for (std::size_t i = 0; i < 80; ++i) {
      std::uint64_t hostTime = n * 1000 + i;
      const bool completed = ltc_frame_push_bit(*frame, bits[i], hostTime);
      EXPECT_EQ(completed, i == 79);
      const std::uint64_t lastOfTheFrameBefore = n == 1 ? 0 : (n - 1) * 1000 + 79;
      EXPECT_EQ(hostTime, completed ? lastOfTheFrameBefore : n * 1000 + i);
    }
    EXPECT_EQ(bitsOf(*frame), bits);
  }
}

TEST(LTCFrameReading, AnyWrongBitOfTheSyncWordRefusesTheFrameAndALaterWordOpensTheNext) {
  const Bits good = publishedLTC(timeOf(kSMPTETimeType2997Drop, 1, 2, 3, 4), {1, 2, 3, 4});
  for (std::size_t wrong = kPublishedSyncBegin; wrong < 80; ++wrong) {
    const Frame frame = openFrame();
    Bits bits = good;
    bits[wrong] ^= 1U;
    std::uint64_t hostTime = 9;
    ASSERT_TRUE(pushAll(*frame, bits, hostTime));
    SMPTETime time = timeOf(kSMPTETimeType25, 9, 9, 9, 9);
    time.mFlags |= kSMPTETimeRunning;
    SMPTETime expected = time;
    expected.mFlags = 0;
    UserBytes user = {7, 7, 7, 7};
    std::uint8_t drop = 7;
    EXPECT_EQ(ltc_frame_decode(*frame, time, user.data(), drop), kLTCNoSync);
    EXPECT_TRUE(sameBytes(time, expected));
    EXPECT_THAT(user, testing::Each(7));
    EXPECT_EQ(drop, 7);

    // It searches again without a reset; only the time is that of the frame before.
    hostTime = 10;
    EXPECT_FALSE(pushAll(*frame, good, hostTime));
    EXPECT_TRUE(pushAll(*frame, good, hostTime));
    EXPECT_EQ(hostTime, 9U);
    EXPECT_EQ(ltc_frame_decode(*frame, time, user.data(), drop), 0);
    EXPECT_EQ(time.mFrames, 4);
  }
}

TEST(LTCFrameReading, AResetForgetsBitsTimesAndHalfASyncWord) {
  const Bits bits = publishedLTC(timeOf(kSMPTETimeType25, 12, 34, 56, 7), {});
  const Frame frame = openFrame();
  std::uint64_t hostTime = 9;
  ASSERT_TRUE(pushAll(*frame, bits, hostTime));
  EXPECT_FALSE(pushAll(*frame, kSync, hostTime));
  ltc_frame_reset(frame.get());
  EXPECT_EQ(bitsOf(*frame), Bits{});

  for (std::size_t i = 0; i < 15; ++i) {
    ltc_frame_push_bit(*frame, kSync[i], hostTime);
  }
  ltc_frame_reset(frame.get());
  ltc_frame_push_bit(*frame, kSync[15], hostTime);
  EXPECT_FALSE(pushAll(*frame, bits, hostTime));
  EXPECT_TRUE(pushAll(*frame, bits, hostTime));
  EXPECT_EQ(hostTime, 0U);
  EXPECT_EQ(bitsOf(*frame), bits);

  ltc_frame_reset(nullptr);  // does nothing
  ltc_frame_destroy(nullptr);
}

// Rendering.

constexpr float kSentinel = 3.0F;
constexpr float kLevel = 0.25F;

// Says what is wrong with the samples of a frame; they are followed by two more, which
// were kSentinel. Places are held as whole numbers: sample * 80 against bit * length.
std::string faultOf(const std::vector<float>& signal, const Bits& bits, std::int64_t samples) {
  std::int64_t begin = 0;
  int sign = 1;
  std::int64_t lastLength = 0;
  for (std::int64_t i = 0; i < 80; ++i) {
    // The end is the nearest sample; where two are, the polarity tells which was taken.
    const std::int64_t place = (i + 1) * samples;
    std::int64_t end = (place + 40) / 80;
    const bool one = bits[static_cast<std::size_t>(i)] != 0;
    const int second = one ? -sign : sign;
    const auto at = [&signal](std::int64_t sample) {
      return signal[static_cast<std::size_t>(sample)];
    };
    if ((place + 40) % 80 == 0 && end < samples && at(end - 1) * static_cast<float>(second) < 0) {
      --end;
    }
    const std::int64_t length = end - begin;
    const std::int64_t middle = begin + length / 2;
    for (std::int64_t s = begin; s < end; ++s) {
      const bool zero = length % 2 != 0 && s == middle;
      const auto expected = static_cast<float>(s < middle ? sign : second) * kLevel;
      if (at(s) != (zero ? 0.0F : expected)) {
        return "sample " + std::to_string(s) + " of bit " + std::to_string(i) + " is " +
               std::to_string(at(s));
      }
    }
    sign = -second;
    begin = end;
    lastLength = length;
  }
  if (sign != 1) {
    return "the next frame would not begin with a change";
  }
  const double excess = static_cast<double>(lastLength) - static_cast<double>(samples) / 80;
  const float behind = excess > 0 ? static_cast<float>(kSentinel * excess) : kSentinel;
  if (std::abs(signal[static_cast<std::size_t>(samples)] - behind) > 1e-5F ||
      signal[static_cast<std::size_t>(samples) + 1] != kSentinel) {
    return "the sample after the frame is not scaled as it should be";
  }
  return {};
}

std::vector<float> rendered(ltc_frame& frame, std::uint32_t samples, float level) {
  std::vector<float> signal(samples + 2, kSentinel);
  const host::RealtimeContext realtime;
  ltc_frame_render(frame, signal.data(), samples, level);
  return signal;
}

TEST(LTCFrameRendering, EachBitEndsAtItsNearestSampleAndAOneChangesInItsMiddle) {
  std::mt19937 random(4);
  const Frame frame = newFrame();
  const auto check = [&](std::uint32_t samples, const SMPTETime& time) {
    const UserBytes user = {
        static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random()),
        static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random())};
    ltc_frame_encode(*frame, time, user.data());
    const std::string fault =
        faultOf(rendered(*frame, samples, kLevel), publishedLTC(time, user), samples);
    EXPECT_EQ(fault, "") << "in a frame of " << samples << " samples";
  };
  // All lengths from a sample for each half of a bit on, the odd and the prime ones too,
  // and some up to 24 frames a second at 192 kHz.
  for (std::uint32_t samples = 160; samples < 8010; samples += samples < 3000 ? 1 : 7) {
    check(samples, ltc_smptetime_from_frame_number(static_cast<int>(random() % 2000000),
                                                   kTypes[samples % kTypes.size()]));
  }
}

TEST(LTCFrameRendering, FramesOfFewSamplesStayInTheirPlace) {
  const Frame frame = newFrame();
  ltc_frame_encode(*frame, timeOf(kSMPTETimeType30, 23, 59, 59, 29), nullptr);
  for (std::uint32_t samples = 0; samples < 160; ++samples) {
    const std::vector<float> signal = rendered(*frame, samples, kLevel);
    for (std::size_t i = 0; i < samples; ++i) {
      EXPECT_TRUE(std::abs(signal[i]) == kLevel || signal[i] == 0.0F) << samples << ", " << i;
    }
    EXPECT_EQ(signal[samples + 1], kSentinel) << samples;
  }
}

// Threads.

TEST(LTCFrameThreads, AnotherThreadNeverSeesHalfAFrame) {
  const Frame frame = newFrame();
  const SMPTETime even = timeOf(kSMPTETimeType25, 0, 0, 0, 0);
  const SMPTETime odd = timeOf(kSMPTETimeType25, 19, 57, 57, 19);
  const UserBytes ones = {0xFF, 0xFF, 0xFF, 0xFF};
  const std::set<std::string> whole = {publishedText(publishedLTC(even, {})),
                                       publishedText(publishedLTC(odd, ones))};
  ltc_frame_encode(*frame, even, nullptr);
  std::atomic<bool> looked{false};
  std::thread writer([&] {
    for (bool turn = false; !looked.load(); turn = !turn) {
      ltc_frame_encode(*frame, turn ? odd : even, turn ? ones.data() : nullptr);
    }
  });
  int halves = 0;
  for (int i = 0; i < 5000; ++i) {
    halves += whole.count(publishedText(bitsOf(*frame))) == 0;
  }
  looked.store(true);
  writer.join();
  EXPECT_EQ(halves, 0);
}

}  // namespace
}  // namespace velor
