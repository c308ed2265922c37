// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_two_frames.h"

#include <gtest/gtest.h>

#include "kvtimecode/ltc_utils.h"
#include "tests/support/ExactDrop.h"

namespace velor {
namespace {

TEST(ltc_two_frames, ExactlyTwoFrameNumbersOnOrLessByOneInEachDroppedMinute) {
  constexpr int kDay = 2589408;  // frames of drop-frame time
  constexpr int kDroppedMinutes = 54 * 24;
  for (const std::uint32_t type : {kSMPTETimeType30Drop, kSMPTETimeType2997Drop}) {
    for (const bool isExact : {false, true}) {
      const ExactDrop exact(isExact);
      int late = 0;
      for (int n = 0; n < kDay; ++n) {
        SMPTETime time = ltc_smptetime_from_frame_number(n, type);
        ltc_add_two_frames(time);
        const int step = (ltc_frame_number_from_smptetime(time) - n + kDay) % kDay;
        late += step == 1 ? 1 : 0;
        ASSERT_TRUE(step == 2 || step == 1) << n;
      }
      EXPECT_EQ(late, isExact ? 0 : kDroppedMinutes);
    }
  }
}

}  // namespace
}  // namespace velor
