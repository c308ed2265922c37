// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_utils.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/host/Realtime.h"
#include "tests/support/LTCTime.h"

namespace velor {
namespace {

// Lengths of a day in frames: 24 hours of 86400, 90000 or 108000 frames, and the
// 2589408 that are known of drop-frame time.
struct Format {
  std::uint32_t type;
  int labels;  // a second
  bool drop;
  int dayLength;
};
constexpr std::array<Format, 7> kFormats = {{{kSMPTETimeType24, 24, false, 2073600},
                                             {kSMPTETimeType25, 25, false, 2160000},
                                             {kSMPTETimeType30Drop, 30, true, 2589408},
                                             {kSMPTETimeType30, 30, false, 2592000},
                                             {kSMPTETimeType2997, 30, false, 2592000},
                                             {kSMPTETimeType2997Drop, 30, true, 2589408},
                                             {kSMPTETimeType2398, 24, false, 2073600}}};

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

SMPTETime normalized(SMPTETime t) {
  EXPECT_EQ(ltc_normalize(t), 0);
  return t;
}

SMPTETime numbered(int number, std::uint32_t type) {
  return ltc_smptetime_from_frame_number(number, type);
}

std::string text(const SMPTETime& t) {
  std::array<char, kLTCStringSize> buffer{};
  ltc_format_string(t, buffer.data());
  return buffer.data();
}

// The labels of a day as on paper, those that are dropped too.
bool isDropped(const Format& format, const SMPTETime& label) {
  return format.drop && label.mFrames < 2 && label.mSeconds == 0 &&
         std::to_string(label.mMinutes).back() != '0';
}
std::vector<SMPTETime> labelsOfDay(const Format& format, bool withDropped) {
  std::vector<SMPTETime> labels;
  for (int second = 0; second < 86400; ++second) {
    for (int frame = 0; frame < format.labels; ++frame) {
      labels.push_back(timeOf(format.type, second / 3600, second / 60 % 60, second % 60, frame));
      if (!withDropped && isDropped(format, labels.back())) {
        labels.pop_back();
      }
    }
  }
  return labels;
}

class EveryFormat : public testing::TestWithParam<Format> {};

std::string formatName(const testing::TestParamInfo<Format>& info) {
  return "Code" + std::to_string(info.param.type);
}
INSTANTIATE_TEST_SUITE_P(ltc_utils, EveryFormat, testing::ValuesIn(kFormats), formatName);

TEST_P(EveryFormat, EachFrameOfADayHasItsNumberItsTextAndIsOneFrameOnFromTheLast) {
  const Format format = GetParam();
  std::string expected = format.drop ? "00:00:00;00" : "00:00:00:00";
  std::array<char, kLTCStringSize> written{};
  int counted = 0;
  int faults = 0;
  SMPTETime ticking = normalized(timeOf(format.type, 0, 0, 0, 0));
  for (const SMPTETime& label : labelsOfDay(format, true)) {
    if (isDropped(format, label)) {
      faults +=
          !ltc_is_dropped_time(label) || ltc_frame_number_from_smptetime(label) != counted - 1;
      continue;
    }
    std::size_t at = 0;
    for (const int field : {label.mHours, label.mMinutes, label.mSeconds, label.mFrames}) {
      expected[at] = static_cast<char>('0' + field / 10);
      expected[at + 1] = static_cast<char>('0' + field % 10);
      at += 3;
    }
    ltc_format_string(label, written.data());
    const bool holds = ltc_frame_number_from_smptetime(label) == counted &&
                       ltc_same_time(numbered(counted, format.type), label) &&
                       ltc_same_time(ticking, label) && expected == written.data() &&
                       !ltc_is_dropped_time(label);
    if (!holds && ++faults < 5) {
      ADD_FAILURE() << expected << " is frame " << counted << ", but reads " << written.data()
                    << " and has the number " << ltc_frame_number_from_smptetime(label)
                    << "; counting stands at " << text(ticking);
    }
    ltc_add_frames(ticking, 1);
    ++counted;
  }
  EXPECT_EQ(faults, 0);
  EXPECT_EQ(counted, format.dayLength);
  EXPECT_EQ(ltc_frame_number_from_smptetime(ticking), 0) << "the day ends where it began";
}

TEST_P(EveryFormat, NormalisingAnyFieldsGivesTheLabelThatIsWholeDaysAway) {
  const Format format = GetParam();
  std::mt19937 random(1);
  const auto field = [&](int shift) { return static_cast<std::int16_t>(random() >> shift); };
  const std::int64_t day = 86400 * format.labels;
  for (int i = 0; i < 20000; ++i) {
    // Up to 16383 hours the sum stays within 32 bits.
    SMPTETime t = timeOf(format.type, field(16) / 2, field(16), field(16), field(16));
    t.mSubframes = field(0);
    t.mSubframeDivisor = field(0);
    t.mFlags = kSMPTETimeRunning;
    t.mCounter = 77;
    const auto nominal = [&] {
      return (t.mHours * 3600LL + t.mMinutes * 60 + t.mSeconds) * format.labels + t.mFrames;
    };
    const std::int64_t before = nominal();
    ASSERT_EQ(ltc_normalize(t), 0);
    ASSERT_TRUE(t.mHours >= 0 && t.mHours < 24 && t.mMinutes >= 0 && t.mMinutes < 60);
    ASSERT_TRUE(t.mSeconds >= 0 && t.mSeconds < 60 && t.mFrames >= 0 && t.mFrames < format.labels);
    ASSERT_FALSE(ltc_is_dropped_time(t));
    const std::int64_t pushed = ((nominal() - before) % day + day) % day;
    if (format.drop && t.mFrames == 2 && t.mSeconds == 0 && t.mMinutes % 10 != 0) {
      ASSERT_LE(pushed, 2);
    } else {
      ASSERT_EQ(pushed, 0);
    }
    ASSERT_EQ(t.mSubframes, 0);
    ASSERT_EQ(t.mSubframeDivisor, 80);
    ASSERT_EQ(t.mFlags, kSMPTETimeValid | kSMPTETimeRunning);
    ASSERT_EQ(t.mCounter, 77U);
  }
  // Beyond 32 bits the day is not told any more; a label it must be all the same.
  for (const int hours : {INT16_MIN, INT16_MAX}) {
    const SMPTETime t = normalized(timeOf(format.type, hours, hours, hours, hours));
    EXPECT_TRUE(ltc_same_time(t, normalized(t)));
    EXPECT_LT(t.mHours, 24);
  }
  for (const int number : {INT32_MIN, INT32_MAX}) {
    SMPTETime t = numbered(number, format.type);
    EXPECT_TRUE(ltc_same_time(t, normalized(t)));
    const SMPTETime beyond = timeOf(format.type, INT16_MAX, 0, 0, 0);
    EXPECT_EQ(ltc_add(t, beyond), 0);
    EXPECT_TRUE(ltc_same_time(t, normalized(t)));
  }
}

TEST_P(EveryFormat, SumsAndDifferencesCountRealFramesAndLeaveTheOtherFields) {
  const Format format = GetParam();
  const std::vector<SMPTETime> day = labelsOfDay(format, false);
  std::mt19937 random(2);
  std::uniform_int_distribution<std::size_t> anyFrame(0, day.size() - 1);
  for (int i = 0; i < 20000; ++i) {
    const std::size_t first = anyFrame(random);
    const std::size_t second = anyFrame(random);
    SMPTETime sum = day[first];
    sum.mFlags |= kSMPTETimeRunning;
    sum.mCounter = 5;
    sum.mSubframes = 7;
    SMPTETime expected = sum;
    const SMPTETime& total = day[(first + second) % day.size()];
    std::memcpy(&expected.mHours, &total.mHours, 8);
    {
      const host::RealtimeContext realtime;  // an allocation ends the program
      EXPECT_EQ(ltc_add(sum, day[second]), 0);
    }
    ASSERT_TRUE(sameBytes(sum, expected)) << text(day[first]) << " + " << text(day[second]);
    if (first >= second || !format.drop) {
      SMPTETime difference = day[first];
      ASSERT_EQ(ltc_subtract(difference, day[second]), 0);
      ASSERT_TRUE(ltc_same_time(difference, day[(first + day.size() - second) % day.size()]))
          << text(day[first]) << " - " << text(day[second]);
    }
    const int order = (first > second) - (first < second);
    ASSERT_EQ(ltc_compare(day[first], day[second]), order);
    ASSERT_EQ(ltc_compare(day[second], day[first]), -order);
  }
}

TEST(ltc_utils, ADifferenceBelowZeroInADropFormatGoesBackByLabels) {
  const SMPTETime midnight = timeOf(kSMPTETimeType2997Drop, 0, 0, 0, 0);
  for (const auto& [frames, label] : {std::pair(1, "23:59:59;29"),
                                      {1798, "23:59:00;02"},
                                      {1800, "23:59:00;02"},
                                      {1801, "23:58:59;29"},
                                      {17981, "23:50:00;19"},
                                      {17982, "23:50:00;00"}}) {
    SMPTETime t = midnight;
    EXPECT_EQ(ltc_subtract(t, numbered(frames, t.mType)), 0);
    EXPECT_EQ(text(t), label);
  }
}

TEST(ltc_utils, AddingFramesPushesOnOverDroppedLabels) {
  for (const std::uint32_t type : {kSMPTETimeType30Drop, kSMPTETimeType2997Drop}) {
    for (const auto& [frame, count] : {std::pair{29, 1U}, {29, 2U}, {28, 3U}}) {
      SMPTETime t = timeOf(type, 0, 0, 59, frame);
      EXPECT_EQ(ltc_add_frames(t, count), 0);
      EXPECT_EQ(text(t), "00:01:00;02") << "adding counts dropped labels";
    }
  }
}

TEST(ltc_utils, SettingAndAssigningKeepFormatFlagsAndCounterAndRefuseWhatDoesNotFit) {
  SMPTETime target = timeOf(kSMPTETimeType24, 0, 0, 0, 0);
  target.mCounter = 9;
  target.mFlags = kSMPTETimeRunning;
  EXPECT_EQ(ltc_set_time(target, -1, 60, 0, 25), 0);
  EXPECT_EQ(text(target), "00:00:01:01");
  EXPECT_EQ(ltc_assign_time(timeOf(kSMPTETimeType25, 1, 2, 3, 24), target), 0);
  EXPECT_EQ(text(target), "01:02:04:00") << "label 24 of 25 carries where a second has 24";
  EXPECT_EQ(target.mType, kSMPTETimeType24);
  EXPECT_EQ(target.mFlags, kSMPTETimeRunning | kSMPTETimeValid);
  EXPECT_EQ(target.mCounter, 9U);

  const SMPTETime before = target;
  SMPTETime invalid = timeOf(kSMPTETimeType24, 5, 5, 5, 5);
  invalid.mFlags = kSMPTETimeRunning;
  const SMPTETime in30 = timeOf(kSMPTETimeType30, 1, 0, 0, 0);
  EXPECT_EQ(ltc_assign_time(invalid, target), -40001);
  for (const auto operation : {ltc_add, ltc_subtract}) {
    EXPECT_EQ(operation(target, invalid), -40001);
    EXPECT_EQ(operation(target, in30), -40002);
  }
  EXPECT_TRUE(sameBytes(target, before));
}

TEST(ltc_utils, SecondsCountTheFormatsRealRateAndTruncate) {
  EXPECT_NEAR(ltc_seconds_from_smpte_time(timeOf(kSMPTETimeType2997Drop, 1, 0, 0, 0)), 3600, 1e-6);
  EXPECT_NEAR(ltc_seconds_from_smpte_time(timeOf(kSMPTETimeType2398, 1, 0, 0, 0)), 3603.6, 1e-6);

  const auto at = [](std::uint32_t type, double seconds) {
    SMPTETime t = timeOf(kSMPTETimeType24, 9, 9, 9, 9);
    t.mCounter = 4;
    t.mFlags |= kSMPTETimeRunning;
    ltc_smpte_time_from_seconds(type, t, seconds);
    EXPECT_EQ(t.mType, type);
    EXPECT_EQ(t.mFlags, kSMPTETimeValid);
    EXPECT_EQ(t.mCounter, 0U);
    return text(t);
  };
  // 30 true frames a second under numbers that skip: 108 frames ahead in an hour.
  EXPECT_EQ(at(kSMPTETimeType30Drop, 3600.0), "01:00:03;18");
  EXPECT_EQ(at(kSMPTETimeType25, 1.16), "00:00:01:03");
  EXPECT_EQ(at(kSMPTETimeType25, 0.0399), "00:00:00:00");
  EXPECT_EQ(at(kSMPTETimeType25, -0.05), "23:59:59:24");
  EXPECT_EQ(at(kSMPTETimeType25, kNaN), "00:00:00:00");
  // 2147483647 and -2147483648 frames.
  for (const double huge : {1e12, 1e300, kInfinity}) {
    EXPECT_EQ(at(kSMPTETimeType25, huge), "04:55:45:22");
    EXPECT_EQ(at(kSMPTETimeType25, -huge), "19:04:14:02");
  }
}

TEST(ltc_utils, ChangesOfTimeInSecondsKeepRealTimeAndMayLoseAFrame) {
  const auto changed = [](SMPTETime t, std::uint32_t type) {
    ltc_change_format(t, type);
    return text(t);
  };
  EXPECT_EQ(changed(timeOf(kSMPTETimeType30, 0, 0, 1, 15), kSMPTETimeType25), "00:00:01:12");
  EXPECT_EQ(changed(timeOf(kSMPTETimeType25, 1, 0, 0, 0), kSMPTETimeType2997), "00:59:56:11");
  EXPECT_EQ(changed(timeOf(kSMPTETimeType25, 0, 0, 1, 4), kSMPTETimeType25), "00:00:01:03");
  EXPECT_EQ(changed(timeOf(8, 1, 2, 3, 4), kSMPTETimeType25), "00:00:00:00");

  SMPTETime t = timeOf(kSMPTETimeType25, 0, 0, 1, 4);
  t.mFlags |= kSMPTETimeRunning;
  EXPECT_EQ(ltc_add_seconds(t, 0), 0);
  EXPECT_EQ(text(t), "00:00:01:03");
  EXPECT_EQ(t.mFlags, kSMPTETimeValid);
  ltc_add_seconds(t, -60.0);
  EXPECT_EQ(text(t), "23:59:01:03");
}

TEST(ltc_utils, ARecordOfNoFormatLosesItsFlagsAndNothingElse) {
  for (const std::uint32_t type : {6U, 7U, 10U, 12U, 0xFFFFFFFFU}) {
    SMPTETime t = timeOf(type, 30, 70, 1, 4);
    t.mFlags = 0xFFFFFFFF;
    t.mSubframes = 3;
    SMPTETime expected = t;
    expected.mFlags = 0;
    EXPECT_FALSE(ltc_is_valid_type(type));
    EXPECT_TRUE(std::isnan(ltc_seconds_from_smpte_time(t)));
    EXPECT_FALSE(ltc_cancompare(t, t));
    EXPECT_EQ(ltc_normalize(t), -40003);
    EXPECT_TRUE(sameBytes(t, expected));
    EXPECT_EQ(ltc_frame_number_from_smptetime(t), INT32_MIN);
    EXPECT_EQ(ltc_set_time(t, 1, 2, 3, 4), -40003);
  }
}

TEST(ltc_utils, EqualityLooksAtDigitsAndFormatOnly) {
  const SMPTETime t = timeOf(kSMPTETimeType25, 1, 2, 3, 4);
  SMPTETime other = t;
  other.mCounter = 100;
  other.mFlags |= kSMPTETimeRunning;
  EXPECT_TRUE(ltc_identical(t, other)) << "read twice from LTC";
  other.mType = kSMPTETimeType30;
  EXPECT_FALSE(ltc_same_time(t, other));
  for (const auto part : {&SMPTETime::mSubframes, &SMPTETime::mSubframeDivisor, &SMPTETime::mHours,
                          &SMPTETime::mMinutes, &SMPTETime::mSeconds, &SMPTETime::mFrames}) {
    const bool isDigits = part != &SMPTETime::mSubframes && part != &SMPTETime::mSubframeDivisor;
    SMPTETime apart = t;
    apart.*part = 7;
    EXPECT_FALSE(ltc_identical(t, apart));
    EXPECT_EQ(ltc_same_time(t, apart), !isDigits);
    EXPECT_EQ(ltc_compare(t, apart), isDigits ? -1 : 0);
  }
  EXPECT_FALSE(ltc_same_time(SMPTETime{}, SMPTETime{})) << "two invalid times are not the same";
  EXPECT_FALSE(ltc_cancompare(SMPTETime{}, SMPTETime{}));
  // A dropped label and the frame before it have one number: neither is earlier.
  const SMPTETime last = timeOf(kSMPTETimeType2997Drop, 0, 0, 59, 29);
  const SMPTETime label = timeOf(kSMPTETimeType2997Drop, 0, 1, 0, 0);
  EXPECT_EQ(ltc_compare(last, label), 1);
  EXPECT_EQ(ltc_compare(label, last), 1);
}

TEST(ltc_utils, DetectionTakesTheNearestRateThatTheFrameDigitsAllow) {
  const struct {
    int frames;
    bool drop;
    double rate;
    std::uint32_t type;
  } cases[] = {
      {0, false, 23.976, kSMPTETimeType2398},
      {23, false, 24.0, kSMPTETimeType24},
      {23, false, 25.1, kSMPTETimeType25},
      {23, false, 29.97, kSMPTETimeType2997},
      {23, false, 30.01, kSMPTETimeType30},
      {23, false, -24.0, kSMPTETimeType24},  // backwards: only the size counts
      {24, false, 24.0, kSMPTETimeType25},   // the digits rule out 24 a second
      {25, false, 24.0, kSMPTETimeType2997},
      {29, true, 29.97, kSMPTETimeType2997Drop},
      {29, true, 30.0, kSMPTETimeType30Drop},
      {0, true, 24.0, kSMPTETimeType2997Drop},  // never a format without drop
      // All are equally far from a standstill: the first that the digits allow.
      {0, false, 0.0, kSMPTETimeType2398},
      {0, true, 0.0, kSMPTETimeType2997Drop},
  };
  for (const auto& c : cases) {
    SMPTETime t = timeOf(7, 99, 1, 0, c.frames);  // digits are not looked at otherwise
    t.mFlags = kSMPTETimeRunning;
    SMPTETime expected = t;
    expected.mType = c.type;
    expected.mFlags = kSMPTETimeRunning | kSMPTETimeValid;
    EXPECT_EQ(ltc_detect_frame_format(t, c.drop ? 0x80 : 0, c.rate), 0);
    EXPECT_TRUE(sameBytes(t, expected)) << c.frames << " at " << c.rate << ": " << t.mType;
  }
  SMPTETime t = timeOf(kSMPTETimeType25, 1, 2, 3, 30);
  const SMPTETime before = t;
  EXPECT_EQ(ltc_detect_frame_format(t, 0, 25.0), -1);
  EXPECT_TRUE(sameBytes(t, before)) << "impossible digits leave the record";
  t.mFrames = 4;
  EXPECT_EQ(ltc_detect_frame_format(t, 0, kNaN), -1);
  EXPECT_EQ(t.mFlags, 0U);
}

TEST(ltc_utils, TextNeverLeavesTwelveBytesWhateverTheFieldsHold) {
  EXPECT_EQ(text(SMPTETime{}), "--:--:--:--");
  std::mt19937 random(3);
  const auto field = [&random] { return static_cast<std::int16_t>(random()) >> random() % 10; };
  std::array<char, 64> printed{};
  for (int i = 0; i < 20000; ++i) {
    const SMPTETime t = timeOf(random() % 8, field(), field(), field(), field());
    std::snprintf(printed.data(), printed.size(), "%02u:%02u:%02u%c%02u",
                  static_cast<unsigned>(t.mHours), static_cast<unsigned>(t.mMinutes),
                  static_cast<unsigned>(t.mSeconds), t.mType == 2 || t.mType == 5 ? ';' : ':',
                  static_cast<unsigned>(t.mFrames));
    std::array<char, 16> buffer;
    buffer.fill('#');
    ltc_format_string(t, buffer.data());
    ASSERT_EQ(std::string(buffer.data()), std::string(printed.data(), 11));
    ASSERT_EQ(std::string(buffer.data() + 12, 4), "####");
  }
}

}  // namespace
}  // namespace velor
