// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/VirtualAudioDevice.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

#include "kva/KAHALAudioDevice.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint32_t kInputLatency = 100;
constexpr std::uint32_t kOutputLatency = 37;

class VirtualAudioDeviceTest : public testing::Test {
 protected:
  VirtualAudioDeviceTest() {
    VirtualAudioDevice::Parameters parameters = BuiltinAudio::loopback();
    parameters.inputLatency = kInputLatency;
    parameters.outputLatency = kOutputLatency;
    auto builtin = std::make_unique<BuiltinAudio>(std::vector{parameters});
    mDevice = &builtin->device();
    mService = serviceOver(std::move(builtin));
  }

  // How late the newest sample comes in that was played as `part` of what is heard.
  static double delay(const AudioRecorder& recorder, float part = 1) {
    const auto& [time, frames] = recorder.log[recorder.cycles - 1];
    return delayOf(recorder.left[recorder.frames - 1] * part, time.mSampleTime + frames - 1);
  }
  double sampleNow() {
    AudioTimeStamp now{.mHostTime = mHost.AudioGetCurrentHostTime(),
                       .mFlags = kAudioTimeStampHostTimeValid};
    EXPECT_EQ(mService->AudioDeviceTranslateTime(mDevice->id(), now, now), 0);
    return now.mSampleTime;
  }

  host::SimulatedHost mHost;
  VirtualAudioDevice* mDevice = nullptr;
  std::unique_ptr<AudioService> mService;
};

TEST_F(VirtualAudioDeviceTest, TheLoopIsAsLongAsItsLatenciesAndItsPeriod) {
  AudioRecorder recorder(mDevice->id());
  AudioPlayer player(mDevice->id());
  for (const std::uint32_t period : {240U, 1000U, 16U}) {
    mDevice->setPeriod(period);
    mHost.advance(300 * kMs);
    EXPECT_EQ(delay(recorder), period + kInputLatency + kOutputLatency);
    const auto described = *mService->description(mDevice->id());
    EXPECT_EQ(described.bufferFrames, period);
    EXPECT_EQ(described.input.latency, period + kInputLatency);
    EXPECT_EQ(described.output.latency, kOutputLatency);
  }
}

TEST_F(VirtualAudioDeviceTest, ItsCountGoesOnThroughAChangeOfRateAndThroughAbsence) {
  AudioRecorder recorder(mDevice->id());
  AudioPlayer player(mDevice->id());
  mHost.advance(500 * kMs);
  const double before = sampleNow();
  mDevice->setSampleRate(96000);
  EXPECT_EQ(sampleNow(), before);
  mHost.advance(500 * kMs);
  EXPECT_EQ(sampleNow(), before + 48000);
  for (std::size_t i = 1; i < recorder.cycles; ++i) {
    const auto& last = recorder.log[i - 1];
    ASSERT_EQ(recorder.log[i].time.mSampleTime, last.time.mSampleTime + last.frames) << i;
  }
  mDevice->vanish();
  mHost.advance(500 * kMs);
  mDevice->appear();
  EXPECT_EQ(sampleNow(), before + 96000);
}

}  // namespace
}  // namespace velor::audio
