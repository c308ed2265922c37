// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

// Rendering.

constexpr float kSentinel = 3.0F;
constexpr float kLevel = 0.25F;

// Says what is wrong with the samples of a frame; they are followed by two more, which
// were kSentinel. A change stands at the first sample behind it, or on the sample that is 0.
std::string faultOf(const std::vector<float>& signal, const Bits& bits, std::uint32_t samples) {
  std::vector<double> changes = {0};
  for (std::size_t i = 1; i < samples; ++i) {
    if (signal[i] != 0 && std::abs(signal[i]) != kLevel) {
      return "sample " + std::to_string(i) + " is " + std::to_string(signal[i]);
    }
    if (signal[i] * signal[i - 1] < 0) {
      changes.push_back(static_cast<double>(i));
    } else if (signal[i] == 0 && signal[i - 1] * signal[i + 1] < 0) {
      changes.push_back(static_cast<double>(i) + 0.5);
    }
  }
  std::vector<double> due;  // each bit begins with a change, and a one has another
  for (std::size_t i = 0; i < 80; ++i) {
    for (std::size_t half = 0; half <= bits[i]; ++half) {
      due.push_back((static_cast<double>(i) + 0.5 * static_cast<double>(half)) * samples / 80);
    }
  }
  for (std::size_t i = 0; i < std::min(due.size(), changes.size()); ++i) {
    if (std::abs(changes[i] - due[i]) > 0.5) {
      return "a change at " + std::to_string(changes[i]) + ", due at " + std::to_string(due[i]);
    }
  }
  const bool isWhole = changes.size() == due.size() && signal[0] == kLevel &&
                       signal[samples - 1] == -kLevel && signal[samples] > 0 &&
                       signal[samples] <= kSentinel && signal[samples + 1] == kSentinel;
  return isWhole ? "" : "changes are missing, or the next frame would not begin with one";
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
