// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/KVLTCGenerator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <any>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "Kv-Appkit/KVShared.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/LogRecord.h"

namespace velor {
namespace {

using testing::ElementsAre;
constexpr std::uint64_t kMs = 1'000'000;

// "desk" is the default device, "stage" has four outputs, and what "far" gets leaves it
// half a second later.
class KVLTCGeneratorTest : public testing::Test {
 protected:
  KVLTCGeneratorTest() {
    auto desk = audio::BuiltinAudio::loopback();
    desk.uid = "uid.desk";
    desk.name = "desk";
    auto stage = desk;
    stage.uid = "uid.stage";
    stage.name = "stage";
    stage.outputs = stage.inputs = 4;
    stage.isDefault = false;
    auto far = stage;
    far.uid = "uid.far";
    far.outputLatency = 24000;
    auto builtin = std::make_unique<audio::BuiltinAudio>(std::vector{desk, stage, far});
    mDesk = &builtin->device(0);
    mStage = &builtin->device(1);
    mFar = &builtin->device(2);
    mService = audio::serviceOver(std::move(builtin));
  }
  ~KVLTCGeneratorTest() override {
    KVSharedInstances::clear();
    mService.reset();
    audio::setService(nullptr);
  }

  // Brings in times from `mNext` on at 25 frames a second; when they end, so do the calls.
  void play(KVLTCGenerator& generator, int calls) {
    for (int i = 0; i < calls; ++i, mNext += 2) {
      SMPTETime time = ltc_smptetime_from_frame_number(mNext, kSMPTETimeType25);
      time.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
      generator.copyTime(time, mHost.AudioGetCurrentHostTime());
      mHost.advance(80 * kMs);
    }
  }
  static std::vector<std::int32_t> mapOf(const KVLTCGenerator& generator) {
    std::vector<std::int32_t> map(generator.lengthOfChannelMap());
    generator.getChannelMap(map);
    return map;
  }
  bool isHeard(audio::VirtualAudioDevice& device, std::size_t channel, KVLTCGenerator& generator) {
    audio::AudioRecorder recorder(device.id(), channel);
    play(generator, 6);
    const auto samples = recorder.drain().second;
    return std::any_of(samples.begin(), samples.end(), [](float sample) { return sample > 0.05F; });
  }

  host::SimulatedHost mHost;
  LogRecord mLog;
  std::unique_ptr<audio::AudioService> mService;
  audio::VirtualAudioDevice* mDesk = nullptr;   // the service's
  audio::VirtualAudioDevice* mStage = nullptr;  // the service's
  audio::VirtualAudioDevice* mFar = nullptr;    // the service's
  std::int32_t mNext = 0;
};

TEST_F(KVLTCGeneratorTest, AStreamIsShownWhileItRunsAndEndsFourFramesAfterItsLastCall) {
  const auto generator = KVLTCGenerator::initWithAudioObjectID(0);
  SMPTETime still = ltc_smptetime_from_frame_number(0, kSMPTETimeType25);
  generator->copyTime(still, mHost.AudioGetCurrentHostTime());
  mHost.settle();
  EXPECT_EQ(generator->frameRateString(), "-- fps");
  EXPECT_FALSE(generator->isGenerating());

  mNext = 90000;
  play(*generator, 10);
  EXPECT_TRUE(mLog.has("Generator starts to receive: 01:00:00:00 (25)"));
  EXPECT_TRUE(generator->isGenerating());
  EXPECT_EQ(generator->deviceStatus(), 0x72756E20U);
  EXPECT_EQ(generator->tcstring(), "01:00:00:20");
  EXPECT_EQ(generator->frameRateString(), "25.00 fps (+0.000%)");

  // The last call was 80 ms ago, the end is 4 / 24 s behind it.
  mHost.advance(86 * kMs);
  EXPECT_TRUE(generator->isGenerating());
  mHost.advance(kMs);
  EXPECT_TRUE(mLog.has("Generator stopped to receive MTC"));
  EXPECT_EQ(generator->deviceStatus(), 0U);
  EXPECT_EQ(generator->tcstring(), "--:--:--:--");
  EXPECT_EQ(generator->frameRateString(), "-- fps");
  EXPECT_EQ(generator->fps(), 25);
}

TEST_F(KVLTCGeneratorTest, AStreamThatNobodyCanPlayInTimeIsGivenUpAndTriedAgain) {
  const auto generator = KVLTCGenerator::initWithAudioObjectID(mFar->id());
  play(*generator, 15);
  EXPECT_EQ(mLog.count("Generator stopped to receive MTC"), 0);
  // 16 calls find nothing read, the watchdog takes two more: 18 calls a try.
  play(*generator, 60);
  EXPECT_EQ(mLog.count("Generator stopped to receive MTC"), 4);
  EXPECT_EQ(mLog.count("latency of 505 ms is too long for LTC; set a shorter period"), 1);
}

TEST_F(KVLTCGeneratorTest, ADeviceThatGoesIsNotReplacedAndPlaysAgainWhenItReturns) {
  const auto generator = KVLTCGenerator::initWithAudioObjectID(mStage->id());
  const std::vector<std::int32_t> third = {-1, -1, 0, -1};
  generator->setChannelMap(third);
  EXPECT_TRUE(isHeard(*mStage, 2, *generator));
  EXPECT_FALSE(isHeard(*mStage, 0, *generator));
  int told = 0;
  const auto token = generator->addObserver("audioObjectId", [&told](const auto&) { ++told; });
  std::vector<std::string> news;
  const auto newsToken = KVNotificationCenter::defaultCenter().addObserver(
      KADeviceChoiceNotification, [&news](const KVNotification& notification) {
        news.push_back(std::any_cast<std::string>(notification.object));
      });

  const std::string device = "audio device 'uid.stage' is ";
  const std::vector<std::string> each = {device + "missing; no LTC until it returns",
                                         device + "back; LTC plays on it again"};
  for (const double rate : {48000.0, 44100.0}) {
    news.clear();
    mStage->vanish();
    play(*generator, 4);
    EXPECT_EQ(generator->audioObjectId(), 0U);
    EXPECT_FALSE(generator->isOnChosenDevice());
    EXPECT_FALSE(isHeard(*mDesk, 0, *generator));
    mHost.advance(1000 * kMs);
    EXPECT_FALSE(generator->isGenerating());
    mStage->setSampleRate(rate);
    mStage->appear();
    EXPECT_TRUE(isHeard(*mStage, 2, *generator));
    EXPECT_EQ(generator->audioObjectId(), mStage->id());
    EXPECT_EQ(mapOf(*generator), third);
    mHost.advance(1000 * kMs);
    EXPECT_EQ(news, each);
  }
  EXPECT_EQ(told, 4);
  // Another rate while it plays.
  for (const double rate : {96000.0, 22050.0}) {
    mStage->setSampleRate(rate);
    play(*generator, 60);
    EXPECT_EQ(generator->fps(), 25);  // counted in samples, it would be another
    EXPECT_EQ(mapOf(*generator), third);
    EXPECT_TRUE(isHeard(*mStage, 2, *generator));
  }
  EXPECT_EQ(mLog.errors(), 0U);

  // Who chooses what is not there is told, and nothing changes.
  mDesk->vanish();
  EXPECT_THROW(generator->setAudioObjectId(mDesk->id()), KVException);
  EXPECT_TRUE(isHeard(*mStage, 2, *generator));
}

TEST_F(KVLTCGeneratorTest, TheArchiveKeepsTheChoiceEvenWhileTheDeviceIsMissing) {
  constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<KVLTCGenerator>()};
  const auto archived = [](const std::shared_ptr<KVLTCGenerator>& generator) {
    store::KeyedArchiver coder;
    coder.encodeObject(generator, "g");
    return coder.data().value();
  };
  const auto restored = [&kClasses](const std::string& document) {
    auto coder = store::KeyedUnarchiver::read(document, kClasses).value();
    const auto generator = coder.decodeObject<KVLTCGenerator>("g");
    generator->open();
    return generator;
  };
  const std::vector<std::int32_t> fourth = {-1, -1, -1, 0};
  std::string document;
  {
    const auto generator = KVLTCGenerator::initWithAudioObjectID(mStage->id());
    generator->setChannelMap(fourth);
    for (const auto& [given, taken] : {std::pair(2.0F, 1.0F), {NAN, 0.0F}, {0.5F, 0.5F}}) {
      generator->setLevel(given);
      EXPECT_EQ(generator->level(), taken);
    }
    generator->setUserbits(0x87654321);
    document = archived(generator);
  }
  const auto there = restored(document);
  EXPECT_EQ(there->audioObjectId(), mStage->id());
  EXPECT_EQ(mapOf(*there), fourth);
  EXPECT_EQ(there->level(), 0.5F);
  EXPECT_EQ(there->userbits(), 0x87654321);

  mStage->vanish();
  mHost.settle();
  const auto away = restored(document);
  EXPECT_EQ(away->audioObjectId(), mDesk->id());
  EXPECT_FALSE(away->isOnChosenDevice());
  EXPECT_TRUE(isHeard(*mDesk, 0, *away));
  EXPECT_TRUE(
      mLog.has("audio device 'uid.stage' is missing; LTC plays on 'uid.desk' until it returns"));
  EXPECT_THAT(mapOf(*away), ElementsAre(0, 1));
  EXPECT_EQ(archived(away), document);
  mStage->appear();
  mHost.settle();
  EXPECT_EQ(away->audioObjectId(), mStage->id());
  EXPECT_EQ(mapOf(*away), fourth);
}

}  // namespace
}  // namespace velor
