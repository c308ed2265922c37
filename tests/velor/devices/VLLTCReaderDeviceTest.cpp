// SPDX-License-Identifier: MIT
#include "Velor/devices/VLLTCReaderDevice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "tests/support/LTCSignal.h"
#include "tests/velor/devices/LoopbackFixture.h"
#include "tests/velor/mtc/MTCOnWire.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::int32_t kFirst = 90000;  // an hour

struct Delegate final : LTCReaderDeviceDelegate {
  void setInputTimecode(const SMPTETime& time) override {
    frames.push_back(ltc_frame_number_from_smptetime(time));
  }
  void changedUserbits(std::uint32_t bits) override { userbits.push_back(bits); }
  void changedCurrentSpeed(double now) override { speeds.push_back(now); }
  void mtcDidChangeState(VLMTCState state) override {
    states += (states.empty() ? "" : " ") + stringFromFourCC(state);
  }
  std::vector<std::int32_t> frames;
  std::vector<std::uint32_t> userbits;
  std::vector<double> speeds;
  std::string states;
};

struct SignalPlayer {
  static void play(const host::RealtimeContext& /*realtime*/, void* refCon,
                   const audio::AudioTimeStamp& /*time*/, std::uint32_t frames,
                   std::span<float* const> channels) noexcept {
    auto& self = *static_cast<SignalPlayer*>(refCon);
    for (std::uint32_t i = 0; i < frames && self.place < self.samples.size(); ++i) {
      channels[0][i] = self.samples[self.place++];
    }
  }
  const std::vector<float>& samples;
  std::size_t place = 0;
};

// A clock at 25, its generator, and a reader that hears it.
class VLLTCReaderDeviceTest : public LoopbackFixture {
 protected:
  struct Block {
    std::int32_t frame;
    std::uint64_t time;  // ns, of the first piece
  };

  void make() {
    mGenerator = created();
    mReader = manager().createrReader();
    mReader->addDelegate(mDelegate);
    inputOf(*mGenerator)->setEnable(true);
    clock().setSmpteFormat(kSMPTETimeType25);
    clock().setTime(ltc_smptetime_from_frame_number(kFirst, kSMPTETimeType25));
  }

  // The blocks that have left the reader's source since the last call.
  std::vector<Block> takeBlocks(const VLDevice& device) {
    std::vector<Block> blocks;
    for (const OnWire& sent : takeSentMTC(*mOutside, device.midiEndpoint()->endpoint())) {
      SMPTETime time;
      EXPECT_TRUE(parseSmpteTime(sent.digits, time, kSMPTETimeType25)) << sent.digits;
      blocks.push_back({ltc_frame_number_from_smptetime(time), sent.time});
    }
    mOutside->sent.clear();
    return blocks;
  }

  std::shared_ptr<VLLTCGeneratorDevice> mGenerator;
  std::shared_ptr<VLLTCReaderDevice> mReader;
  const std::shared_ptr<Delegate> mDelegate = std::make_shared<Delegate>();
};

TEST_F(VLLTCReaderDeviceTest, WhatTheClockPlaysIsReadAndLeavesAsMTCInStepWithTheClock) {
  make();
  EXPECT_EQ(mReader->name(), "LTC Reader 1");
  EXPECT_EQ(manager().createrReader()->name(), "LTC Reader 2");
  EXPECT_EQ(mReader->type(), 0x6C746372U);
  clock().start();
  mHost.advance(10 * kSecond);
  EXPECT_EQ(mReader->deviceStatus(), kVLDeviceStatusRunning);
  const auto blocks = takeBlocks(*mReader);
  ASSERT_GT(blocks.size(), 115U);
  for (std::size_t i = 1; i < blocks.size(); ++i) {
    ASSERT_EQ(blocks[i].frame, blocks[i - 1].frame + 2);
    // LTC is read to the sample, and its generator follows to the sample.
    ASSERT_NEAR(static_cast<double>(blocks[i].time - blocks[0].time),
                static_cast<double>(2 * i * kFrame25), 63000);
  }
  // What the clock sends now, by what has left the reader.
  mHost.advance(kFrame25 / 2);
  const std::int32_t current = ltc_frame_number_from_smptetime(clock().time()) - 1;
  EXPECT_EQ(blocks[0].frame + static_cast<std::int32_t>(
                                  (mHost.AudioGetCurrentHostTime() - blocks[0].time) / kFrame25),
            current);
  EXPECT_TRUE(mLog.has("LTC Reader (LTC Reader 1) changed state: did start reading"));

  // Slower by more than a hundredth, the pace is that of what is read.
  clock().setPlayRatePercent(-1.5);
  mHost.advance(5 * kSecond);
  EXPECT_NEAR(mReader->getLatestSpeed(), 25 * 0.985, 0.01);
  EXPECT_NEAR(mReader->frameRate() / mReader->getLatestSpeed(), 1, 0.0101);

  ASSERT_EQ(core().sources().size(), 2U);
  manager().removeDevicesAtIndexes({0, 1, 2});  // while they are read
  mHost.settle();
  EXPECT_TRUE(core().sources().empty());
  mReader.reset();
  mHost.advance(kSecond);
  EXPECT_EQ(mLog.errors(), 0U);
}

TEST_F(VLLTCReaderDeviceTest, ItsChannelsAreAnnouncedWhenItsAudioDeviceGoesAndReturns) {
  make();
  mHost.settle();
  int announced = 0;
  const auto token = mReader->addObserver("channelNames", [&](const auto&) { ++announced; });
  mLoopback->vanish();
  mHost.settle();
  EXPECT_EQ(announced, 1);
  EXPECT_TRUE(mReader->channelNames().empty());
  mLoopback->appear();
  mHost.settle();
  EXPECT_EQ(announced, 2);
  EXPECT_EQ(mReader->channelNames().size(), 2U);
}

TEST_F(VLLTCReaderDeviceTest, EachStepOfAFreewheelIsReportedOnceAndShownAsItsStatus) {
  make();
  mReader->setFreewheelTime(2);
  clock().start();
  mHost.advance(3 * kSecond);
  mDelegate->states.clear();
  const auto other = std::make_shared<Delegate>();
  mReader->addDelegate(other);
  mReader->addDelegate(std::make_shared<Delegate>());  // ends at once
  int announced = 0;
  const auto token = mReader->addObserver("deviceStatus", [&](const auto&) { ++announced; });
  inputOf(*mGenerator)->setEnable(false);
  mHost.advance(kSecond);
  EXPECT_EQ(mReader->deviceStatus(), kVLDeviceStatusFreewheeling);
  inputOf(*mGenerator)->setEnable(true);
  mHost.advance(2 * kSecond);
  EXPECT_EQ(mReader->deviceStatus(), kVLDeviceStatusRunning);
  EXPECT_EQ(mDelegate->states, "fwst resm rdst");
  EXPECT_EQ(announced, 3) << "once for each";
  clock().stop();
  mHost.advance(kSecond);
  EXPECT_TRUE(mReader->freewheeling());
  mHost.advance(2 * kSecond);
  EXPECT_FALSE(mReader->running());
  EXPECT_EQ(mReader->deviceStatus(), kVLDeviceStatusIdle);
  EXPECT_EQ(mReader->getLatestSpeed(), 0);
  EXPECT_EQ(mDelegate->states, "fwst resm rdst fwst fwsp");
  EXPECT_EQ(other->states, mDelegate->states);
}

TEST_F(VLLTCReaderDeviceTest, TheDelegateHearsEverySecondFrameAndOnlyWhatChanges) {
  make();
  clock().start();
  mHost.advance(4 * kSecond);
  mGenerator->generator()->setUserbits(0x89ABCDEF);
  mHost.advance(4 * kSecond);
  ASSERT_GT(mDelegate->frames.size(), 90U);
  for (std::size_t i = 1; i < mDelegate->frames.size(); ++i) {
    ASSERT_EQ(mDelegate->frames[i], mDelegate->frames[i - 1] + 2);
  }
  EXPECT_EQ(mDelegate->userbits, std::vector<std::uint32_t>{0x89ABCDEF});
  EXPECT_EQ(mReader->userbits(), 0x89ABCDEFU);
  SMPTETime latest;
  mReader->getLatestTime(latest);
  EXPECT_NEAR(ltc_frame_number_from_smptetime(latest), mDelegate->frames.back() + 2, 2);
  ASSERT_FALSE(mDelegate->speeds.empty());
  const auto steady = mDelegate->speeds.size();
  mHost.advance(4 * kSecond);
  EXPECT_EQ(mDelegate->speeds.size(), steady);
  EXPECT_NEAR(mReader->getLatestSpeed(), 25, 0.005);
}

// At 30 frames per second and long periods a frame without a host time comes after a
// broken one: the 50 ms of a stall are not over at the end of a period.
TEST_F(VLLTCReaderDeviceTest, AFrameAfterABrokenOneIsNotSentAtHostTimeZero) {
  const std::uint64_t begin = mHost.AudioGetCurrentHostTime();
  const auto reader = manager().createrReader();
  LTCSignal signal = LTCSignalMaker{.type = kSMPTETimeType30, .frames = 300}.make();
  for (std::size_t i = 20; i < signal.frames.size(); i += 21) {
    const auto end = signal.samples.begin() + static_cast<std::ptrdiff_t>(signal.frames[i].end);
    std::fill(end - 60, end, 0.5F);
  }
  for (const std::uint32_t period : {4096U, 8192U}) {
    mLoopback->setPeriod(period);
    SignalPlayer player{signal.samples};
    const auto stream = mLoopback->open(
        {audio::AudioDirection::output, "", 2, {0, 1}, &SignalPlayer::play, &player});
    mHost.advance(20 * kSecond);
    const auto blocks = takeBlocks(*reader);
    EXPECT_GT(blocks.size(), 60U);
    for (const Block& block : blocks) {
      EXPECT_GE(block.time, begin);
    }
  }
}

}  // namespace
}  // namespace velor
