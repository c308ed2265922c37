// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTEFormatter.h"

#include <gtest/gtest.h>

#include <memory>

namespace velor {
namespace {

TEST(KVSMPTEFormatter, TakesWhatItsPatternTakesCarriesNumberByNumberAndShowsIt) {
  const struct {
    std::uint32_t format;
    const char* text;
    const char* shown;
  } cases[] = {{kSMPTETimeType25, "to 01:02:03 04!", "01:02:03.04"},
               {kSMPTETimeType25, "00:00:59.30", "00:01:00.05"},
               // The minute's first label is stepped over as soon as the minutes are set, and
               // the frames then replace it.
               {kSMPTETimeType2997Drop, "00:01:00;01", "00:01:00;02"},
               {kSMPTETimeType2398, "1:1:1.1", "01:01:01.01"}};
  KVSMPTEFormatter formatter;
  for (const auto& [format, text, shown] : cases) {
    formatter.setFormat(format);
    std::shared_ptr<KVSMPTETime> time;
    ASSERT_TRUE(formatter.getObjectValue(time, text, nullptr)) << text;
    EXPECT_EQ(formatter.stringForObjectValue(time.get()), shown);
    EXPECT_FALSE(formatter.getObjectValue(time, "soon", nullptr));
  }
}

}  // namespace
}  // namespace velor
