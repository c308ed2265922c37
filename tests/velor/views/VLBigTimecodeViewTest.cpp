// SPDX-License-Identifier: MIT
#include "Velor/views/VLBigTimecodeView.h"

#include "tests/velor/views/ViewFixture.h"

namespace velor {
namespace {

class VLBigTimecodeViewTest : public ViewFixture {};

TEST_F(VLBigTimecodeViewTest, WhileTheClockRunsAFrameRepaintsTheTextAlone) {
  VLBigTimecodeView view;
  show({&view}, {800, 800});
  Painted painted(view);
  const auto paintedBy = [&](const char* time) {
    painted.take();
    view.setMainTime(timeOf(time));
    settle();
    return painted.take().boundingRect();
  };
  paintedBy("01:00:00:00");
  EXPECT_EQ(paintedBy("01:00:00:01"), view.rect());
  view.setClockStatus(VLClockRolling);
  settle();
  EXPECT_EQ(paintedBy("01:00:00:02"), view.mainTextFrame().toAlignedRect());
  EXPECT_EQ(paintedBy("01:00:01:00"), view.rect());
}

}  // namespace
}  // namespace velor
