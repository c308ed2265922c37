// SPDX-License-Identifier: MIT
#include "kvtimecode/SMPTEString.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "kvtimecode/SMPTEPattern.h"
#include "tests/support/LTCTime.h"

namespace velor {
namespace {

// All that a text can leave in a record.
SMPTETime parsed(std::uint32_t format, int hours, int minutes, int seconds, int frames) {
  SMPTETime t = timeOf(format, hours, minutes, seconds, frames);
  t.mSubframeDivisor = 80;
  return t;
}

// A record in which each byte would show that it was left over.
SMPTETime usedRecord() {
  SMPTETime t;
  std::memset(static_cast<void*>(&t), 0x5A, sizeof t);
  return t;
}

TEST(SMPTEString, EachFormatHasItsNameAndItsTimesComeBackFromTheClipboardUpToCodeFive) {
  using Row = std::tuple<std::uint32_t, const char*, const char*>;
  for (const auto& [format, name, clipboard] :
       {Row(kSMPTETimeType24, "24", "[01:02:03:04][0]"),
        Row(kSMPTETimeType25, "25", "[01:02:03:04][1]"),
        Row(kSMPTETimeType30Drop, "30 Drop", "[01:02:03;04][2]"),
        Row(kSMPTETimeType30, "30", "[01:02:03:04][3]"),
        Row(kSMPTETimeType2997, "29.97", "[01:02:03:04][4]"),
        Row(kSMPTETimeType2997Drop, "29.97 Drop", "[01:02:03;04][5]"),
        Row(kSMPTETimeType2398, "23.98", "[01:02:03:04][11]")}) {
    EXPECT_EQ(stringFromSMPTEFormat(format), name);
    EXPECT_EQ(encodeableStringFromSMPTETime(timeOf(format, 1, 2, 3, 4)), clipboard);
    SMPTETime back = usedRecord();
    const bool isRead = format != kSMPTETimeType2398;  // its code has two digits
    EXPECT_EQ(parseEncodedSmpteTime(clipboard, back), isRead);
    EXPECT_TRUE(sameBytes(back, isRead ? parsed(format, 1, 2, 3, 4) : usedRecord()));
  }
  EXPECT_EQ(stringFromSMPTEFormat(7), "unknown format 7");
}

TEST(SMPTEString, TheFirstTimeIsTakenUncheckedAndATextWithoutOneLeavesTheRecordAlone) {
  using Digits = std::optional<std::array<int, 4>>;
  using Row = std::tuple<const char*, std::uint32_t, Digits>;
  for (const auto& [text, format, digits] :
       {Row("at 01:02:03:04 or 05:06:07:08", 1, {{1, 2, 3, 4}}),
        Row("99:99:99:99", 1, {{99, 99, 99, 99}}),
        Row("9:8:7:6;5", 5, {{8, 7, 6, 5}}),  // the first that has the divider
        Row("65536:65537:32768:65535", 0, {{0, 1, -32768, -1}}), Row("01:02:03;04", 1, {}),
        Row("01:02:03:04", 5, {})}) {
    SMPTETime time = usedRecord();
    EXPECT_EQ(parseSmpteTime(text, time, format), digits.has_value()) << text;
    const auto [hours, minutes, seconds, frames] = digits.value_or(std::array<int, 4>{});
    EXPECT_TRUE(
        sameBytes(time, digits ? parsed(format, hours, minutes, seconds, frames) : usedRecord()));
  }
}

// Short texts of what the patterns are made of, so that they nearly match.
std::string randomText(std::mt19937& random, const std::vector<std::string>& pieces) {
  std::string text;
  for (auto left = random() % 16; left > 0; --left) {
    text += pieces[random() % pieces.size()];
  }
  return text;
}

TEST(SMPTEString, ATimeIsFoundWhereItsRegularExpressionFindsIt) {
  const std::vector<std::string> pieces = {
      "0", "1", "2", "13", ":", ":", ":1:", ";", ".", "\n", "\r", "x1", "1:2:3"};
  for (const char divider : {':', ';', '.'}) {
    const std::regex pattern(std::string(R"((\d+):(\d+):(\d+))") + divider + R"((\d+))",
                             std::regex::icase);
    std::mt19937 random(5);
    int matches = 0;
    for (int i = 0; i < 40000; ++i) {
      const std::string text = randomText(random, pieces);
      std::smatch expected;
      const bool matched = std::regex_search(text, expected, pattern);
      const auto found = matchSMPTEPattern(text, divider);
      ASSERT_EQ(found.has_value(), matched) << divider << " in \"" << text << '"';
      for (std::size_t group = 0; matched && group < 4; ++group) {
        ASSERT_EQ((*found)[group], std::min(std::stod(expected[group + 1]), 2147483647.0))
            << '"' << text << '"';
      }
      matches += matched;
    }
    EXPECT_GT(matches, 700);
    EXPECT_LT(matches, 37000);
  }
}

TEST(SMPTEString, AClipboardTextIsTakenByItsFirstBracketsThatHoldATimeAndAFormat) {
  for (const auto& [text, format] : std::vector<std::pair<const char*, std::uint32_t>>{
           {"see [[01:02:03:04][3]] there", kSMPTETimeType30},
           {"[x][01:02:03:04][3]", kSMPTETimeType30},
           {"[01:02:03:04][9]", 9},
           {"[1][01:02:03;04][5][3]", kSMPTETimeType2997Drop}}) {
    SMPTETime time = usedRecord();
    EXPECT_TRUE(parseEncodedSmpteTime(text, time)) << text;
    EXPECT_TRUE(sameBytes(time, parsed(format, 1, 2, 3, 4))) << text;
  }
  for (const char* text : {"[][3][01:02:03:04][3]", "[01:02:03:04][5]", "[01:02:03;04][3]", "["}) {
    SMPTETime time = usedRecord();
    EXPECT_FALSE(parseEncodedSmpteTime(text, time)) << text;
    EXPECT_TRUE(sameBytes(time, usedRecord())) << text;
  }
}

TEST(SMPTEString, LongTextsCostNoStackAndNoMoreThanTheirLength) {
  constexpr std::size_t kLong = 4'000'000;
  SMPTETime time = usedRecord();
  std::string pairs;
  while (pairs.size() < kLong) {
    pairs += "1:2:";
  }
  for (const std::string& text :
       {std::string(kLong, '1'), std::string(kLong, '['), std::string(kLong, ':'), pairs + ':',
        '[' + std::string(kLong, ':') + "[1]", std::string(kLong, '1') + ":1:1;1"}) {
    EXPECT_FALSE(parseEncodedSmpteTime(text, time));
    static_cast<void>(matchSMPTEPattern(text, '.'));
  }
  EXPECT_TRUE(sameBytes(time, usedRecord()));
  EXPECT_TRUE(parseSmpteTime(std::string(kLong, '0') + "1:2:3:4", time, 1));
  EXPECT_TRUE(sameBytes(time, parsed(1, 1, 2, 3, 4)));
}

}  // namespace
}  // namespace velor
