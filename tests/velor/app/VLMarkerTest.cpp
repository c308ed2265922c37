// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVObserverList.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<VLMarker>(),
                                          store::KeyedClass::of<KVSMPTETime>()};

std::shared_ptr<KVSMPTETime> timeAt(std::int32_t hours, std::uint32_t format) {
  return KVSMPTETime::smpteTimeWithHours(hours, 2, 3, 4, format);
}

std::shared_ptr<VLMarker> readFrom(const std::string& document) {
  return store::KeyedUnarchiver::read(document, kClasses).value().decodeObject<VLMarker>("marker");
}

TEST(VLMarker, NeedsATimeAndANameAndHoldsACopyOfTheTime) {
  const auto time = timeAt(1, kSMPTETimeType25);
  EXPECT_THROW(VLMarker::initWithTime(nullptr, "A"), KVException);
  EXPECT_THROW(VLMarker::initWithTime(time, std::nullopt), KVException);
  const auto marker = VLMarker::initWithTime(time, "Verse");
  time->setHours(7);
  EXPECT_EQ(marker->description(), "VLMarker, 01:02:03:04 <25>, Verse");
  EXPECT_NE(marker->uuid(), VLMarker::initWithTime(time, "Verse")->uuid());
}

TEST(VLMarker, TakesALabelThatItsFormatHasAndNothingElse) {
  const auto marker = VLMarker::initWithTime(timeAt(1, kSMPTETimeType25), "A");
  std::vector<std::string> told;
  const auto note = [&told](std::string_view key) { told.emplace_back(key); };
  const std::vector<KVObserverToken> tokens = {marker->addObserver("time", note),
                                               marker->addObserver("name", note),
                                               marker->addObserver("timecodeString", note)};
  for (const char* refused : {"", "later", "1:2:3", "01:02:03;04", "24:00:00:00", "00:60:00:00",
                              "00:00:60:00", "00:00:00:25", "65537:00:00:00"}) {
    EXPECT_FALSE(marker->setTimecodeString(refused)) << refused;
  }
  EXPECT_EQ(marker->timecodeString(), "01:02:03:04");
  EXPECT_TRUE(marker->isValid());
  EXPECT_EQ(told, std::vector<std::string>());
  EXPECT_TRUE(marker->setTimecodeString("at 23:59:59:24, say"));
  EXPECT_EQ(marker->timecodeString(), "23:59:59:24");
  EXPECT_EQ(told, (std::vector<std::string>{"timecodeString", "time"}));

  const auto drop = VLMarker::initWithTime(timeAt(1, kSMPTETimeType2997Drop), "A");
  EXPECT_FALSE(drop->setTimecodeString("00:01:00;01"));
  EXPECT_TRUE(drop->setTimecodeString("00:10:00;01"));
}

TEST(VLMarker, StandsWhateverIsMissingInADocument) {
  for (const char* poor :
       {R"({"marker": {"$class": "VLMarker"}})",
        R"({"marker": {"$class": "VLMarker", "uuid": null, "time": null, "name": null}})"}) {
    const auto empty = readFrom(poor);
    EXPECT_FALSE(empty->isValid());
    EXPECT_EQ(empty->description(), "VLMarker, --:--:--:-- <24>, ");
    EXPECT_FALSE(empty->uuid().empty());
  }
}

}  // namespace
}  // namespace velor
