// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/VirtualAudioDevice.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "sim/VirtualCable.h"
#include "tests/support/AudioLoop.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint64_t kSecond = 1'000'000'000;
using Parameters = VirtualAudioDevice::Parameters;

Parameters device(double rate = 48000, std::uint32_t period = 240) {
  Parameters parameters = BuiltinAudio::loopback();
  parameters.sampleRate = rate;
  parameters.period = period;
  return parameters;
}

// The table of objects, as far as devices need one.
class FakeInside final : public AudioInside {
 public:
  AudioObjectID deviceAppeared(AudioOutside&, const AudioDeviceDescription& device) override {
    descriptions.push_back(device);
    return 2;
  }
  void deviceVanished(AudioObjectID) override { ++vanished; }
  void serverChanged() override {}
  std::vector<AudioDeviceDescription> descriptions;
  int vanished = 0;
};

// A stream of a device; the outputs play a function of the device's count.
class Stream {
 public:
  struct Cycle {
    double sample;
    std::uint64_t host;
    std::uint64_t at;
    std::uint32_t frames;
  };

  Stream(VirtualAudioDevice& device, AudioDirection direction, float (*play)(double) = nullptr)
      : samples(1 << 20),
        mPlay(play),
        mStream(device.open({direction, "", 2, {0, 1}, &Stream::cycle, this})) {
    cycles.reserve(1 << 20);
    EXPECT_NE(mStream, nullptr);
  }
  void close() { mStream.reset(); }

  std::vector<Cycle> cycles;
  std::vector<float> samples;  // of the first channel, as far as there is room
  std::size_t count = 0;

 private:
  static void cycle(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                    std::uint32_t frames, std::span<float* const> channels) noexcept {
    auto& stream = *static_cast<Stream*>(self);
    stream.cycles.push_back(
        {time.mSampleTime, time.mHostTime, host::current().AudioGetCurrentHostTime(), frames});
    for (std::uint32_t i = 0; i < frames; ++i) {
      if (stream.mPlay != nullptr) {
        channels[0][i] = stream.mPlay(time.mSampleTime + i);
      } else if (stream.count < stream.samples.size()) {
        stream.samples[stream.count++] = channels[0][i];
      }
    }
  }

  float (*mPlay)(double);
  std::unique_ptr<AudioDeviceStream> mStream;
};

class VirtualAudioDeviceTest : public testing::Test {
 protected:
  // Where samples are missing between cycles, how many.
  static std::vector<double> gaps(const Stream& stream) {
    std::vector<double> found;
    for (std::size_t i = 1; i < stream.cycles.size(); ++i) {
      const auto& before = stream.cycles[i - 1];
      const double gap = stream.cycles[i].sample - before.sample - before.frames;
      if (gap != 0) {
        found.push_back(gap);
      }
    }
    return found;
  }

  host::SimulatedHost mHost;
};

TEST_F(VirtualAudioDeviceTest, TheDelayOfTheLoopIsWhatItsLatenciesSayAlsoAfterAChangeOfPeriod) {
  Parameters parameters = device();
  parameters.inputLatency = 100;
  parameters.outputLatency = 37;
  BuiltinAudio builtin({parameters});
  FakeInside inside;
  builtin.start(inside);
  Stream recorder(builtin.device(), AudioDirection::input);
  Stream player(builtin.device(), AudioDirection::output, &patternAt);
  for (const std::uint32_t period : {240U, 1000U, 16U}) {
    builtin.device().setPeriod(period);
    mHost.advance(300 * kMs);
    const auto& told = inside.descriptions.back();
    const Stream::Cycle& last = recorder.cycles.back();
    EXPECT_EQ(last.frames, period);
    EXPECT_EQ(told.bufferFrames, period);
    EXPECT_EQ(told.input.latency, period + 100);
    EXPECT_EQ(told.output.latency, 37U);
    const double lastSample = last.sample + last.frames - 1;
    EXPECT_EQ(delayOf(recorder.samples[recorder.count - 1], lastSample), period + 137);
    // It came in when it left: the two host times are those of the two counts.
    EXPECT_NEAR(static_cast<double>(last.host), (last.sample - period - 100) / 48000 * 1e9, 1);
  }
  builtin.stop();
}

TEST_F(VirtualAudioDeviceTest, CyclesKeepToTheirClockWhateverItsError) {
  Parameters parameters = device();
  parameters.rateError = 200;
  VirtualAudioDevice fast(parameters);
  Stream player(fast, AudioDirection::output, &patternAt);
  const std::uint64_t start = mHost.AudioGetCurrentHostTime();
  mHost.advance(100 * kSecond);
  player.close();
  const double rate = 48000 * 1.0002;
  EXPECT_NEAR(static_cast<double>(player.cycles.size()), 100 * rate / 240, 1);
  for (const auto& cycle : player.cycles) {
    ASSERT_NEAR(static_cast<double>(cycle.host), cycle.sample / rate * 1e9, 1);
    ASSERT_EQ(cycle.at, cycle.host);
  }
  EXPECT_EQ(gaps(player), std::vector<double>());
  AudioTimeStamp stamp;
  ASSERT_EQ(fast.translateTime({.mHostTime = start, .mFlags = kAudioTimeStampHostTimeValid}, stamp),
            0);
  EXPECT_NEAR(stamp.mSampleTime, static_cast<double>(start) * rate / 1e9, 1e-6);
  // Nobody plays, nothing runs; the count goes on all the same.
  const std::size_t cycles = player.cycles.size();
  mHost.advance(kSecond);
  EXPECT_EQ(player.cycles.size(), cycles);
}

TEST_F(VirtualAudioDeviceTest, TheCountGoesOnThroughAChangeOfRateAndThroughAbsence) {
  BuiltinAudio builtin({device()});
  FakeInside inside;
  builtin.start(inside);
  VirtualAudioDevice& loop = builtin.device();
  Stream player(loop, AudioDirection::output, &patternAt);
  mHost.advance(kSecond);
  const std::uint64_t change = mHost.AudioGetCurrentHostTime();
  const double before = player.cycles.back().sample;
  loop.setSampleRate(96000);
  mHost.advance(kSecond);
  EXPECT_EQ(inside.descriptions.back().sampleRate, 96000);
  EXPECT_NEAR(player.cycles.back().sample - before, 96000, 2 * 240);
  EXPECT_EQ(gaps(player), std::vector<double>());
  AudioTimeStamp stamp;
  ASSERT_EQ(loop.translateTime(
                {.mHostTime = change + kSecond / 2, .mFlags = kAudioTimeStampHostTimeValid}, stamp),
            0);
  EXPECT_NEAR(stamp.mSampleTime, static_cast<double>(change) * 48000 / 1e9 + 48000, 1e-3);

  loop.vanish();
  const std::size_t cycles = player.cycles.size();
  EXPECT_EQ(inside.vanished, 1);
  EXPECT_EQ(loop.translateTime(stamp, stamp), kAudioHardwareBadDeviceError);
  EXPECT_EQ(loop.open({}), nullptr);
  mHost.advance(kSecond);
  EXPECT_EQ(player.cycles.size(), cycles);
  loop.appear();
  mHost.advance(kSecond);
  const std::vector<double> found = gaps(player);
  ASSERT_EQ(found.size(), 1U);
  EXPECT_NEAR(found[0], 96000, 240);
  player.close();
  builtin.stop();
}

// A sine of 1 kHz by the count of a device at 48 kHz.
constexpr double kSineStep = 2 * std::numbers::pi * 1000 / 48000;
float sineAt(double sample) {
  return static_cast<float>(std::sin(kSineStep * sample));
}

TEST_F(VirtualAudioDeviceTest, ACableCarriesTheSignalThroughHostTimeBetweenTwoClocks) {
  Parameters from = device(48000, 240);
  from.rateError = 50;
  from.outputLatency = 64;
  Parameters to = device(44100, 512);
  to.rateError = -30;
  VirtualAudioDevice source(from);
  VirtualAudioDevice sink(to);
  source.plugInto(sink, std::make_unique<VirtualCable>(source, 5 * kMs));
  Stream recorder(sink, AudioDirection::input);
  Stream player(source, AudioDirection::output, &sineAt);
  mHost.advance(10 * kSecond);
  recorder.close();
  player.close();
  // Played where the source's count was, 5 ms and its latency ago.
  double worst = 0;
  for (std::size_t i = recorder.count / 2; i < recorder.count; ++i) {
    const double sample = recorder.cycles[0].sample + static_cast<double>(i);
    const double seconds = (sample - 512) / (44100 * (1 - 30e-6)) - 5e-3;
    const double wanted = std::sin(kSineStep * (seconds * 48000 * (1 + 50e-6) - 64));
    worst = std::max(worst, std::fabs(recorder.samples[i] - wanted));
  }
  // The greatest error of linear interpolation for a sine, from its second derivative.
  const double bound = kSineStep * kSineStep / 8;
  EXPECT_LT(worst, bound * 1.01);
  EXPECT_GT(worst, bound * 0.9);  // it is not perfect either
}

TEST_F(VirtualAudioDeviceTest, StreamsOfOneDeviceAreAddedAndEachHearsAll) {
  VirtualAudioDevice loop(device());
  Stream first(loop, AudioDirection::output, [](double) { return 0.25F; });
  Stream second(loop, AudioDirection::output, [](double) { return 0.5F; });
  Stream left(loop, AudioDirection::input);
  Stream right(loop, AudioDirection::input);
  mHost.advance(100 * kMs);
  EXPECT_EQ(left.samples[left.count - 1], 0.75F);
  second.close();
  mHost.advance(100 * kMs);
  EXPECT_EQ(left.samples[left.count - 1], 0.25F);
  EXPECT_EQ(left.count, right.count);
  EXPECT_EQ(left.samples, right.samples);
}

}  // namespace
}  // namespace velor::audio
