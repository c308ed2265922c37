// SPDX-License-Identifier: MIT
#include "platform/audio/jack/JackSampleClock.h"

#include <gtest/gtest.h>

namespace velor::audio {
namespace {

constexpr std::uint32_t kPeriod = 128;
constexpr double kNominal = 48000;

// Cycles of a device whose crystal is off by `ppm`, with times cut to microseconds
// and lengths as a server tells them that cuts both ends.
class Device {
 public:
  explicit Device(double ppm) : mRate(kNominal * (1 + ppm * 1e-6)) {}

  jack::JackCycle next() {
    mFrame += kPeriod;
    jack::JackCycle cycle;
    cycle.startFrame = mFrame;
    cycle.startTime = cut(timeOf(static_cast<double>(mFrame)));
    cycle.frames = kPeriod;
    const double lengthNs =
        static_cast<double>(cut(timeOf(static_cast<double>(mFrame + kPeriod))) - cycle.startTime);
    cycle.framesPerNs = kPeriod / lengthNs;
    cycle.nominalRate = kNominal;
    cycle.epoch = 1;
    return cycle;
  }
  double timeOf(double frame) const { return 3e12 + (frame - kFirst) * 1e9 / mRate; }
  std::uint64_t frame() const { return mFrame; }

 private:
  static constexpr std::uint64_t kFirst = 1'000'000;
  static std::uint64_t cut(double ns) { return static_cast<std::uint64_t>(ns / 1000) * 1000; }
  const double mRate;
  std::uint64_t mFrame = kFirst;
};

AudioTimeStamp atHostTime(double ns) {
  AudioTimeStamp stamp;
  stamp.mHostTime = static_cast<std::uint64_t>(ns);
  stamp.mFlags = kAudioTimeStampHostTimeValid;
  return stamp;
}

TEST(JackSampleClock, TheCountIsKnownASecondAwayToHalfASampleWhateverTheCrystal) {
  for (const double ppm : {0.0, 80.0, -150.0}) {
    JackSampleClock clock;
    Device device(ppm);
    for (int i = 0; i < 5 * 375; ++i) {  // 5 s
      clock.advance(device.next());
    }
    for (int i = 0; i < 30 * 375; ++i) {
      clock.advance(device.next());
      for (const double ahead : {-48000.0, -1000.25, 0.0, 4000.5, 48000.0}) {
        const double frame = static_cast<double>(device.frame()) + ahead;
        AudioTimeStamp out;
        ASSERT_EQ(clock.translate(atHostTime(device.timeOf(frame)), out), 0);
        ASSERT_NEAR(out.mSampleTime, frame, 0.5) << ppm << " ppm, " << ahead << " ahead";
        AudioTimeStamp back;
        out.mFlags = kAudioTimeStampSampleTimeValid;
        ASSERT_EQ(clock.translate(out, back), 0);
        ASSERT_NEAR(static_cast<double>(back.mHostTime), device.timeOf(frame), 2.0);
      }
    }
  }
}

TEST(JackSampleClock, AJumpOfTheCountOrAnotherRateLeaveNoTrace) {
  JackSampleClock clock;
  Device device(0);
  for (int i = 0; i < 20 * 375; ++i) {
    clock.advance(device.next());
  }
  // First the count alone jumps, then the rate is another.
  for (const std::uint32_t epoch : {1U, 2U}) {
    for (int i = 0; i < 5 * 375; ++i) {
      jack::JackCycle cycle = device.next();
      const std::uint64_t factor = epoch;
      cycle.startFrame = 5'000'000 + factor * cycle.startFrame;
      cycle.nominalRate *= epoch;
      cycle.epoch = epoch;
      clock.advance(cycle);
      AudioTimeStamp out;
      ASSERT_EQ(clock.translate(atHostTime(static_cast<double>(cycle.startTime) + 1e8), out), 0);
      ASSERT_NEAR(out.mSampleTime - static_cast<double>(cycle.startFrame), 0.1 * cycle.nominalRate,
                  0.5);
    }
  }
}

}  // namespace
}  // namespace velor::audio
