// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTETime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kvtimecode/ltc_utils.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/LTCTime.h"
#include "tests/support/LogRecord.h"

namespace velor {
namespace {

std::shared_ptr<KVSMPTETime> with(const char* text, std::uint32_t format) {
  return KVSMPTETime::smpteTimeWithString(text, format);
}

TEST(KVSMPTETime, IsMadeFromNumbersATextOrARecord) {
  EXPECT_EQ(KVSMPTETime::smpteTimeWithHours(0, 0, 0, -1, 1)->stringValue(), "23:59:59:24");
  EXPECT_EQ(KVSMPTETime::smpteTimeWithHours(1, 0, 0, 0, 7), nullptr);
  EXPECT_EQ(with("99:99:99:99", 3)->stringValue(), "99:99:99:99");

  const auto none = with("soon", 5);
  EXPECT_FALSE(none->valid());
  EXPECT_EQ(none->type(), kSMPTETimeType2997Drop);
  EXPECT_EQ(none->stringValue(), "--:--:--:--");

  const SMPTETime odd = {12, 0, 0, 7, kSMPTETimeRunning, 0, 0, 0, 99};
  EXPECT_TRUE(sameBytes(KVSMPTETime::smpteTimeWithTime(odd)->time(), odd));
  EXPECT_FALSE(KVSMPTETime().valid());
}

TEST(KVSMPTETime, SettersCarryOverOneByOneAndMakeTheTimeValid) {
  KVSMPTETime time;
  time.setHours(1);
  EXPECT_TRUE(time.valid());
  EXPECT_EQ(time.stringValue(), "01:00:00:00");
  time.setType(kSMPTETimeType25);
  time.setFrames(30);
  EXPECT_EQ(time.stringValue(), "01:00:01:05");
  time.setSeconds(-1);
  EXPECT_EQ(time.stringValue(), "00:59:59:05");
  time.setMinutes(60 * 25);
  EXPECT_EQ(time.stringValue(), "01:00:59:05");
  time.setHours(0x10002);  // 16 bits of it
  EXPECT_EQ(time.stringValue(), "02:00:59:05");
  EXPECT_DEATH(time.setType(6), "attempting to set an invalid format");
}

TEST(KVSMPTETime, ATextWithoutATimeMakesItUnknownUntilItIsCopiedOrSet) {
  const auto time = with("01:02:03:04", kSMPTETimeType25);
  time->setStringValue("05:06:07;08");
  EXPECT_FALSE(time->valid());
  EXPECT_EQ(time->stringValue(), "--:--:--:--");
  EXPECT_EQ(time->hours(), 1);
  EXPECT_EQ(time->frames(), 4);
  EXPECT_EQ(time->copy()->stringValue(), "01:02:03:04");
  EXPECT_FALSE(time->valid());
  time->timeStamp().mCounter = 9;
  time->setStringValue("05:06:07:08");
  EXPECT_EQ(time->description(), "05:06:07:08 <25>");
  EXPECT_EQ(time->time().mCounter, 0U);
}

TEST(KVSMPTETime, EqualTimesAreOfOneFormatWhateverTheirCounters) {
  const auto time = with("01:02:03:04", kSMPTETimeType25);
  const auto same = time->copy();
  same->timeStamp().mCounter = 77;
  EXPECT_TRUE(time->isEqual(same.get()));
  EXPECT_EQ(time->hash(), same->hash());
  // Negative fields fill the bits above them.
  const SMPTETime odd = {-2, 80, 77, 0x89ABCDEF, 0xC0000001, -1, 259, -300, 12345};
  EXPECT_EQ(KVSMPTETime::smpteTimeWithTime(odd)->hash(), 0x7FF47737U);
  EXPECT_FALSE(time->isEqual(nullptr));
  EXPECT_FALSE(time->isEqual(with("01:02:03:04", kSMPTETimeType24).get()));
  same->timeStamp().mSubframes = 1;
  EXPECT_FALSE(time->isEqual(same.get()));
  same->timeStamp() = time->time();
  same->timeStamp().mFlags = 0;
  EXPECT_FALSE(same->isEqual(same.get()));

  EXPECT_DEATH(time->compare(*with("01:02:03:04", kSMPTETimeType24)), "ltc_cancompare");
}

TEST(KVSMPTETime, TheTextIsAnnouncedWithHoursMinutesAndSecondsButNotWithFrames) {
  const auto time = with("01:02:03:04", kSMPTETimeType25);
  std::vector<std::string> told;
  std::vector<KVObserverToken> tokens;
  for (const char* key : {"hours", "minutes", "seconds", "frames", "type", "stringValue"}) {
    tokens.push_back(
        time->addObserver(key, [&told, time = time.get()](const std::string_view& announced) {
          told.push_back(std::string(announced) + ' ' + time->stringValue());
        }));
  }
  const struct {
    std::function<void()> change;
    std::vector<std::string> told;
  } rows[] = {
      {[&] { time->setHours(2); }, {"hours 02:02:03:04", "stringValue 02:02:03:04"}},
      {[&] { time->setMinutes(3); }, {"minutes 02:03:03:04", "stringValue 02:03:03:04"}},
      {[&] { time->setSeconds(4); }, {"seconds 02:03:04:04", "stringValue 02:03:04:04"}},
      {[&] { time->setFrames(30); }, {"frames 02:03:05:05"}},
      {[&] { time->setType(kSMPTETimeType30); }, {"type 02:03:05:06"}},
      {[&] { time->setStringValue("x"); }, {"stringValue --:--:--:--"}},
      {[&] { time->copyTime(with("00:00:00:00", 1)->time()); }, {}},
      {[&] { time->addSeconds(1); }, {}},
      {[&] { time->timeStamp().mHours = 5; }, {}},
      {[&] { time->willChangeValueForKey("frame"); }, {}},
      {[&] { time->didChangeValueForKey("frame"); }, {"stringValue 05:00:01:00"}},
  };
  for (const auto& row : rows) {
    told.clear();
    row.change();
    EXPECT_EQ(told, row.told);
  }
}

// The archive.

constexpr store::KeyedClass kClasses[] = {store::KeyedClass::of<KVSMPTETime>()};

store::KeyedUnarchiver reading(const std::string& document) {
  return store::KeyedUnarchiver::read(document, kClasses).value();
}

std::shared_ptr<KVSMPTETime> stored(const std::string& base64) {
  return reading(R"({"t": {"$class": "KVSMPTETime", "timestamp": {"$base64": ")" + base64 + "\"}}}")
      .decodeObject<KVSMPTETime>("t");
}

TEST(KVSMPTETimeArchive, ATimeIsItsTwentyFourBytesUnderTheKeyTimestamp) {
  const auto time = with("01:02:03;04", kSMPTETimeType2997Drop);
  time->timeStamp().mCounter = 0x04030201;
  store::KeyedArchiver coder;
  coder.encodeObject(time, "t");
  // 0000 5000 01020304 05000000 01000000 0100 0200 0300 0400
  constexpr const char* kBase64 = "AABQAAECAwQFAAAAAQAAAAEAAgADAAQA";
  EXPECT_THAT(coder.data().value(), testing::HasSubstr(kBase64));
  EXPECT_THAT(coder.data().value(), testing::HasSubstr("\"timestamp\""));
  EXPECT_TRUE(sameBytes(stored(kBase64)->time(), time->time()));
}

TEST(KVSMPTETimeArchive, WhatIsReadIsNormalisedAndWithoutAFormatIsUnknown) {
  const LogRecord log;
  // 01:02:03:30 in 25, not valid.
  EXPECT_EQ(stored("AAAAAAAAAAABAAAAAAAAAAEAAgADAB4A")->stringValue(), "01:02:04:05");
  EXPECT_THAT(log.matching(""), testing::IsEmpty());
  // The same in format 6, valid.
  const auto unknown = stored("AAAAAAAAAAAGAAAAAQAAAAEAAgADAB4A");
  EXPECT_TRUE(log.has("decoding SMPTE Time resulted in -40003, using 0"));
  EXPECT_FALSE(unknown->valid());
  EXPECT_EQ(unknown->frames(), 30);
  EXPECT_EQ(unknown->type(), 6U);

  for (const char* nothing : {R"({"t": {"$class": "KVSMPTETime"}})",
                              R"({"t": {"$class": "KVSMPTETime", "timestamp": null}})"}) {
    EXPECT_FALSE(reading(nothing).decodeObject<KVSMPTETime>("t")->valid());
  }
  EXPECT_EQ(stored("AAAA"), nullptr);
  EXPECT_EQ(stored("AABQAAECAwQFAAAAAQAAAAEAAgADAAQAAAAA"), nullptr);
}

}  // namespace
}  // namespace velor
