// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/ExactDrop.h"
#include "tests/support/LTCLoop.h"
#include "tests/support/LogRecord.h"

namespace velor {
namespace {

using Told = LTCLoop::Told;

constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<VLLTCReader>()};

std::shared_ptr<VLLTCReader> decoded(const std::string& document) {
  auto reader =
      store::KeyedUnarchiver::read(document, kClasses).value().decodeObject<VLLTCReader>("reader");
  if (reader != nullptr) {
    reader->open();
  }
  return reader;
}

// Frame after frame, then at the rate and the place at which they were played. Rounding to
// samples at both ends, and what the low-pass delays, are within three samples.
void expectInStep(const LTCLoop& loop, const std::vector<Told>& told, double sampleRate) {
  for (std::size_t i = 1; i < told.size(); ++i) {
    ASSERT_EQ(told[i].frame, (told[i - 1].frame + 1) % loop.day()) << i;
    ASSERT_EQ(told[i].counter, told[i - 1].counter + 1);
    if (i > 120) {
      ASSERT_NEAR(told[i].fps, 1 / loop.seconds(), 0.005);
      ASSERT_LT(std::fabs(loop.phaseErrorOf(told[i])) * 1e-9 * sampleRate, 3);
    }
  }
}

TEST(VLLTCReaderTest, WhatOneClockPlaysAnotherReadsWithDigitsUserBitsRateAndPhase) {
  using Case = LTCLoop::Parameters;
  constexpr std::int32_t kDropped = 58 * 30;  // two seconds before a dropped minute
  const ExactDrop exact;
  for (const auto& [each, begin] :
       {std::pair(Case{kSMPTETimeType25, 48000, 0, 0}, 2160000 - 1000),
        std::pair(Case{kSMPTETimeType24, 48000, 100, -100}, 2073600 - 1000),
        std::pair(Case{kSMPTETimeType2398, 44100, -100, 100}, 2073600 - 1000),
        std::pair(Case{kSMPTETimeType2997Drop, 96000, 50, -100}, kDropped),
        std::pair(Case{kSMPTETimeType2997Drop, 96000, 50, -100}, kDropped + 1),
        std::pair(Case{kSMPTETimeType30, 44100, -100, -100}, 2592000 - 1000)}) {
    LTCLoop loop(each);
    SCOPED_TRACE(testing::Message() << each.type << " at " << each.sampleRate);
    loop.generator->setUserbits(0x89ABCDEF);
    loop.listen();
    loop.start(begin);  // over midnight, or over a dropped minute
    loop.run(60);
    const std::vector<Told> told = loop.take();
    ASSERT_GT(static_cast<double>(told.size()), 59 / loop.seconds());
    expectInStep(loop, told, each.sampleRate);
    for (std::size_t i = 0; i < told.size(); ++i) {
      ASSERT_EQ(told[i].userbits, 0x89ABCDEF);
      ASSERT_TRUE(i <= 120 || told[i].type == each.type) << i;
    }
  }
}

TEST(VLLTCReaderTest, ItListensToOneChannelAndToNoneBeyondTheLast) {
  LTCLoop loop({kSMPTETimeType25, 48000, 0, 0, 3});
  const std::array<std::int32_t, 3> map = {-1, -1, 0};
  loop.generator->setChannelMap(map);
  loop.listen();
  loop.start(90000);
  for (const std::uint32_t channel : {0U, 1U, 2U, 3U, 200U}) {
    loop.reader->setInputChannel(channel);
    loop.run(1);
    EXPECT_EQ(loop.take().size() > 20, channel == 2) << channel;
  }
  loop.reader->setInputChannel(2);
  loop.reader->stop();
  loop.run(1);
  EXPECT_TRUE(loop.take().empty());
  loop.reader->start();
  loop.run(1);
  EXPECT_GT(loop.take().size(), 20U);
  loop.reader->setCallback(nullptr, nullptr);
  loop.run(1);
  EXPECT_TRUE(loop.take().empty());
}

// Nothing may allocate in its cycles.
TEST(VLLTCReaderTest, AConditionedInputIsReadAsAPlainOneAndTheSwitchWorksWhileItIsHeard) {
  LTCLoop loop({kSMPTETimeType2997Drop, 48000, 100, -100});
  loop.listen();
  loop.start(58 * 30);
  loop.run(5);
  loop.take();
  loop.reader->setConditionsInput(true);
  EXPECT_TRUE(loop.reader->conditionsInput());
  loop.run(20);
  const std::vector<Told> told = loop.take();
  ASSERT_GT(told.size(), 590U);
  expectInStep(loop, told, 48000);
  loop.reader->setConditionsInput(false);
  loop.run(5);
  EXPECT_GT(loop.take().size(), 140U);
}

TEST(VLLTCReaderTest, ADeviceThatGoesIsNotReplacedAndIsHeardAgainOnItsChannelWhenItReturns) {
  const LogRecord log;
  LTCLoop loop({kSMPTETimeType25, 48000, 0, 0, 3});
  const std::array<std::int32_t, 3> map = {0, -1, 0};
  loop.generator->setChannelMap(map);
  loop.listen();
  loop.reader->setInputChannel(2);
  loop.start(90000);
  loop.run(1);
  loop.take();
  for (const double rate : {48000.0, 44100.0, 48000.0}) {
    SCOPED_TRACE(rate);
    loop.heard->vanish();
    loop.run(1);
    EXPECT_EQ(loop.reader->audioDeviceId(), 0U);
    EXPECT_TRUE(loop.take().empty());
    store::KeyedArchiver coder;
    coder.encodeObject(loop.reader, "reader");
    EXPECT_NE(coder.data().value().find(R"("the other")"), std::string::npos);
    loop.heard->setSampleRate(rate);
    loop.heard->appear();
    loop.run(2);
    EXPECT_EQ(loop.reader->audioDeviceId(), loop.heard->id());
    EXPECT_EQ(loop.reader->inputChannel(), 2U);
    EXPECT_GT(loop.take().size(), 20U);
  }
  EXPECT_TRUE(log.has("audio device 'the other' is back; LTC is read from it again"));

  // Another rate is another beginning.
  loop.heard->setSampleRate(44100);
  loop.run(2);
  EXPECT_EQ(loop.reader->inputChannel(), 0U);
  const auto told = loop.take();
  ASSERT_GT(told.size(), 20U);
  EXPECT_NEAR(told.back().fps, 25, 0.005);
  EXPECT_TRUE(log.has("audio unit property changed for LTC Reader (nsrt)"));
  EXPECT_EQ(log.errors(), 0U);
}

TEST(VLLTCReaderTest, ADeviceWithoutInputsIsRefusedAndTheChannelIsTheFirstAllTheSame) {
  const LogRecord log;
  LTCLoop loop;
  loop.reader->setInputChannel(1);
  loop.reader->setAudioDeviceId(4711);
  EXPECT_EQ(loop.reader->audioDeviceId(), loop.heard->id());
  EXPECT_EQ(loop.reader->inputChannel(), 0U);
  EXPECT_TRUE(log.has("refused device with object id 4711 ((null)), because it has no inputs"));
  loop.reader->setAudioDeviceId(loop.played->id());
  EXPECT_EQ(loop.reader->audioDeviceId(), loop.played->id());
}

TEST(VLLTCReaderTest, AnArchiveBringsBackDeviceAndChannelAlsoOfADeviceThatIsAway) {
  LTCLoop loop;
  loop.reader->setInputChannel(1);
  store::KeyedArchiver coder;
  coder.encodeObject(loop.reader, "reader");
  const auto again = decoded(coder.data().value());
  EXPECT_EQ(again->audioDeviceId(), loop.heard->id());
  EXPECT_EQ(again->inputChannel(), 1U);
  loop.heard->vanish();
  loop.host.settle();
  const auto waiting = decoded(coder.data().value());
  EXPECT_EQ(waiting->audioDeviceId(), loop.played->id());
  EXPECT_EQ(waiting->inputChannel(), 0U);
  loop.heard->appear();
  loop.host.settle();
  EXPECT_EQ(waiting->audioDeviceId(), loop.heard->id());
  EXPECT_EQ(waiting->inputChannel(), 1U);
  EXPECT_THAT([] { decoded(R"({"reader": {"$class": "VLLTCReader"}})"); },
              testing::Throws<KVException>(testing::Property(
                  &KVException::reason, "Invalid parameter not satisfying: uid")));
}

}  // namespace
}  // namespace velor
