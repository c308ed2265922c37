// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/VirtualAudioDevice.h"

#include <gtest/gtest.h>

#include <memory>

#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

class VirtualAudioDeviceTest : public testing::Test {
 protected:
  VirtualAudioDeviceTest() {
    auto builtin = std::make_unique<BuiltinAudio>();
    mDevice = &builtin->device();
    mService = serviceOver(std::move(builtin));
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

TEST_F(VirtualAudioDeviceTest, ItsCountGoesOnThroughAChangeOfRateAndThroughAbsence) {
  AudioRecorder recorder(mDevice->id());
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
