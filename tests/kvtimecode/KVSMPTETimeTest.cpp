// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTETime.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

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
}

TEST(KVSMPTETime, SettersCarryOverOneByOneAndATextWithoutATimeMakesItUnknown) {
  KVSMPTETime time;
  time.setHours(1);
  time.setType(kSMPTETimeType25);
  time.setFrames(30);
  EXPECT_EQ(time.stringValue(), "01:00:01:05");
  time.setSeconds(-1);
  time.setMinutes(60 * 25);
  EXPECT_EQ(time.stringValue(), "01:00:59:05");
  time.setHours(0x10002);  // 16 bits of it
  EXPECT_EQ(time.stringValue(), "02:00:59:05");
  time.setStringValue("05:06:07;08");
  EXPECT_EQ(time.stringValue(), "--:--:--:--");
  EXPECT_EQ(time.copy()->stringValue(), "02:00:59:05");
  time.setStringValue("05:06:07:08");
  EXPECT_EQ(time.description(), "05:06:07:08 <25>");
  EXPECT_DEATH(time.setType(6), "attempting to set an invalid format");
}

TEST(KVSMPTETime, EqualTimesAreOfOneFormatWhateverTheirCounters) {
  const auto time = with("01:02:03:04", kSMPTETimeType25);
  const auto same = time->copy();
  same->timeStamp().mCounter = 77;
  EXPECT_TRUE(time->isEqual(same.get()));
  EXPECT_EQ(time->hash(), same->hash());
  EXPECT_FALSE(time->isEqual(with("01:02:03:04", kSMPTETimeType24).get()));
  same->timeStamp().mSubframes = 1;
  EXPECT_FALSE(time->isEqual(same.get()));
  same->timeStamp() = time->time();
  same->timeStamp().mFlags = 0;
  EXPECT_FALSE(same->isEqual(same.get()));
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
