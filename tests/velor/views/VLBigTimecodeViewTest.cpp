// SPDX-License-Identifier: MIT
#include "Velor/views/VLBigTimecodeView.h"

#include <QFontMetricsF>
#include <cmath>
#include <numbers>

#include "Velor/clock/VLClock.h"
#include "Velor/views/VLClockStatusText.h"
#include "tests/velor/views/ViewFixture.h"

namespace velor {
namespace {

class VLBigTimecodeViewTest : public ViewFixture {
 protected:
  void resize(int width, int height) {
    mWindow.resize(width, height);
    settle();
  }
  /// Clockwise from twelve o'clock, so far in from the ring.
  QPointF onDial(double degrees, double inward) const {
    const double angle = degrees * std::numbers::pi / 180;
    const double radius = mView.dialRadius() - inward;
    return QRectF(mView.rect()).center() +
           QPointF(radius * std::sin(angle), -radius * std::cos(angle));
  }
  QColor at(double degrees, double inward = 0) { return colorAt(mView, onDial(degrees, inward)); }

  VLBigTimecodeView mView;
  const QColor mDark{85, 85, 85};
  const QColor mRed = VLQColor(VLClock::colorForClockState(VLClockStopped));
};

TEST_F(VLBigTimecodeViewTest, TheRingShowsTheSecondsAndTheMarksMinutesAndHours) {
  show({&mView}, {800, 800});
  ASSERT_TRUE(mView.hasDial());
  mView.setMainTime(timeOf("15:50:20:00"));
  EXPECT_EQ(at(117), mRed);
  EXPECT_EQ(at(123), mDark);
  EXPECT_EQ(at(300, 40), mRed);            // 50 minutes
  EXPECT_EQ(at(15 * 30 - 360, 58), mRed);  // 15 hours
  EXPECT_EQ(at(0, 50), mDark);             // the long tick of twelve o'clock
  EXPECT_EQ(at(30, 20), mDark);
  EXPECT_EQ(at(30, 50), QColor(Qt::black));
  EXPECT_EQ(at(45, 40), QColor(Qt::black));
  mView.setMainTime(timeOf("15:50:00:00"));
  EXPECT_EQ(at(1), mRed);  // all of the minute, not none of it
  EXPECT_EQ(at(359), mRed);
  mView.setMainTime(timeOf("15:50:59:00"));
  EXPECT_EQ(at(353), mRed);
  EXPECT_EQ(at(357), mDark);
  mView.setClockStatus(VLClockRolling);
  EXPECT_EQ(at(353), VLQColor(VLClock::colorForClockState(VLClockRolling)));
}

TEST_F(VLBigTimecodeViewTest, TheTextIsTheLargestThatFitsBetween16And120AndTheDialGivesWay) {
  show({&mView}, {800, 800});
  for (const auto& [width, height] :
       {std::pair{3000, 3000}, {1200, 900}, {800, 800}, {500, 900}, {330, 330}, {200, 100}}) {
    resize(width, height);
    const int size = mView.calculateFontSize();
    const auto widthAt = [](int pixels) {
      QFont font = QApplication::font();
      font.setBold(true);
      font.setPixelSize(pixels);
      return QFontMetricsF(font).horizontalAdvance("00:00:00:00");
    };
    const double limit = std::min(width, height) - 50 - 120;
    constexpr double kRounding = 11;  // each character takes whole pixels
    EXPECT_EQ((120 - size) % 4, 0);
    EXPECT_TRUE(size == 120 || widthAt(size + 4) + kRounding >= limit) << width;
    EXPECT_TRUE(size == 16 || widthAt(size) < limit) << width;
    EXPECT_EQ(mView.hasDial(), size > 16) << width;
    EXPECT_NEAR(mView.mainTextFrame().center().x(), width / 2.0, 1);
  }
  EXPECT_EQ(mView.calculateFontSize(), 16);
  EXPECT_FALSE(mView.hasDial());
}

TEST_F(VLBigTimecodeViewTest, WhileTheClockRunsAFrameRepaintsTheTextAlone) {
  show({&mView}, {800, 800});
  Painted painted(mView);
  const auto paintedBy = [&](const char* time) {
    painted.take();
    mView.setMainTime(timeOf(time));
    settle();
    return painted.take().boundingRect();
  };
  paintedBy("01:00:00:00");
  EXPECT_EQ(paintedBy("01:00:00:01"), mView.rect());
  mView.setClockStatus(VLClockRolling);
  settle();
  EXPECT_EQ(paintedBy("01:00:00:02"), mView.mainTextFrame().toAlignedRect());
  EXPECT_EQ(paintedBy("01:00:01:00"), mView.rect());
}

}  // namespace
}  // namespace velor
