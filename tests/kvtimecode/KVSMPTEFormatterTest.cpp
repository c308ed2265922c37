// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTEFormatter.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace velor {
namespace {

std::string shown(std::uint32_t format, const char* text) {
  KVSMPTEFormatter formatter;
  formatter.setFormat(format);
  std::shared_ptr<KVSMPTETime> time;
  std::string description = "untouched";
  const bool taken = formatter.getObjectValue(time, text, &description);
  EXPECT_EQ(description, "untouched");
  EXPECT_EQ(taken, time != nullptr);
  return taken ? time->description() : "none";
}

TEST(KVSMPTEFormatter, TakesWhatItsPatternTakesAndCarriesNumberByNumber) {
  EXPECT_EQ(shown(1, "01:02:03:04"), "01:02:03:04 <25>");
  EXPECT_EQ(shown(1, "to 01:02:03 04!"), "01:02:03:04 <25>");
  EXPECT_EQ(shown(1, "01:02:0304"), "01:02:03:04 <25>");  // the 0 for the divider
  EXPECT_EQ(shown(1, "00:00:59.30"), "00:01:00:05 <25>");
  EXPECT_EQ(shown(1, "23:59:59.25"), "00:00:00:00 <25>");
  // The minute's first label is stepped over as soon as the minutes are set, and the
  // frames then replace it.
  EXPECT_EQ(shown(5, "00:01:00;01"), "00:01:00;02 <29.97 Drop>");
  EXPECT_EQ(shown(5, "00:01:30;00"), "00:01:30;00 <29.97 Drop>");
  EXPECT_EQ(shown(11, "1:1:1.1"), "01:01:01:01 <23.98>");
}

TEST(KVSMPTEFormatter, ShowsDigitsAsTheyAreAndTakesOverTheirFormat) {
  KVSMPTEFormatter formatter;
  formatter.setFormat(kSMPTETimeType25);
  std::shared_ptr<KVSMPTETime> time;
  EXPECT_TRUE(formatter.getObjectValue(time, "01:02:03:04", nullptr));
  EXPECT_EQ(formatter.stringForObjectValue(time.get()), "01:02:03.04");

  time->setType(kSMPTETimeType2997Drop);
  const auto kept = time;
  EXPECT_EQ(formatter.stringForObjectValue(time.get()), time->stringValue());
  EXPECT_EQ(formatter.format(), kSMPTETimeType2997Drop);
  EXPECT_FALSE(formatter.getObjectValue(time, "01:02:03.04", nullptr));
  EXPECT_EQ(time, kept);

  EXPECT_EQ(formatter.stringForObjectValue(nullptr), "00:00:00.00");
}

}  // namespace
}  // namespace velor
