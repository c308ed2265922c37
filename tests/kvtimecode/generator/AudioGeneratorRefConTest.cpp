// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/AudioGeneratorRefCon.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace velor {
namespace {

using audio::OSStatus;

struct Cycle {
  OSStatus status = 0;
  std::vector<float> first;
  std::vector<float> second;
};

Cycle rendered(AudioGeneratorRefCon& refCon, double position, std::uint32_t frames) {
  Cycle cycle{0, std::vector<float>(frames, 9), std::vector<float>(frames, 9)};
  float* const channels[] = {cycle.first.data(), cycle.second.data()};
  audio::AudioTimeStamp time;
  time.mSampleTime = position;
  time.mFlags = audio::kAudioTimeStampSampleHostTimeValid;
  const host::RealtimeContext realtime;  // an allocation ends the program
  cycle.status = AudioGeneratorRefCon::render(realtime, &refCon, time, frames, channels);
  return cycle;
}

const std::vector<float> kSilence64(64, 0.0F);

TEST(AudioGeneratorRefConTest, SamplesComeOutAtTheirPlaceAndInWholeCyclesOnly) {
  AudioGeneratorRefCon refCon;
  refCon.ring.assign(1000, 0);
  // A sample that tells its place, written in pieces that overlap and wrap.
  const auto valueAt = [](std::uint64_t place) { return static_cast<float>(place % 4096 + 1); };
  std::mt19937 random(1);
  std::uint64_t place = (std::uint64_t{1} << 40U) + 7;
  for (int i = 0; i < 2000; ++i) {
    std::vector<float> samples(300 + random() % 200);
    for (std::size_t k = 0; k < samples.size(); ++k) {
      samples[k] = valueAt(place + k);
    }
    refCon.write(place, samples);
    const std::uint64_t from = place + random() % 100;
    const Cycle inside = rendered(refCon, static_cast<double>(from), 64);
    ASSERT_EQ(inside.status, 0);
    ASSERT_EQ(refCon.lastReadEnd, from + 64);
    for (std::size_t k = 0; k < 64; ++k) {
      ASSERT_EQ(inside.first[k], valueAt(from + k));
    }
    ASSERT_EQ(inside.second, kSilence64);
    const Cycle beyond = rendered(refCon, static_cast<double>(refCon.writeEnd - 63), 64);
    ASSERT_EQ(beyond.status, 0x5000);
    ASSERT_EQ(beyond.first, kSilence64);
    ASSERT_EQ(refCon.lastReadEnd, 0U);
    ASSERT_EQ(rendered(refCon, static_cast<double>(refCon.writeEnd - 64), 64).status, 0);
    place += 100 + random() % 100;
  }
  refCon.writeEnd = 0;
  EXPECT_EQ(rendered(refCon, static_cast<double>(place), 64).first, kSilence64);
}

TEST(AudioGeneratorRefConTest, ACallWithoutItsThingsIsRefusedByACodeOfItsOwn) {
  AudioGeneratorRefCon refCon;
  audio::AudioTimeStamp time;
  time.mFlags = audio::kAudioTimeStampHostTimeValid;
  const host::RealtimeContext realtime;
  EXPECT_EQ(AudioGeneratorRefCon::render(realtime, nullptr, time, 64, {}), -2);
  EXPECT_EQ(AudioGeneratorRefCon::render(realtime, &refCon, time, 64, {}), -10);
  time.mFlags = audio::kAudioTimeStampSampleTimeValid;
  EXPECT_EQ(AudioGeneratorRefCon::render(realtime, &refCon, time, 64, {}), 20480);
}

}  // namespace
}  // namespace velor
