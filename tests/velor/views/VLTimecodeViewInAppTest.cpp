// SPDX-License-Identifier: MIT
// The counters and the controller together: what the clock echoes of an edit.
#include <QApplication>
#include <QTest>
#include <memory>
#include <string>

#include "Velor/views/VLTimecodeTextView.h"
#include "Velor/views/VLTimecodeView.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

using Time = VLTimecodeView::Time;

class VLTimecodeViewInAppTest : public AppFixture {
 protected:
  VLTimecodeViewInAppTest() {
    mCounters->resize(800, 100);
    mCounters->show();
    QApplication::setActiveWindow(mCounters.get());
    mApp = std::make_shared<VLAppDelegate>(mWindow, mCounters, folders());
    mApp->applicationDidFinishLaunching();
    mHost.settle();
  }
  /// Types at the hours of the time.
  void type(Time which, const char* digits) {
    mCounters->beginEditing(which);
    for (; *digits != 0; ++digits) {
      QTest::keyClick(QApplication::focusWidget(), *digits);
      mHost.settle();
      ASSERT_EQ(mCounters->edited(), which) << digits;
    }
  }

  const std::shared_ptr<VLTimecodeView> mCounters = std::make_shared<VLTimecodeView>();
};

TEST_F(VLTimecodeViewInAppTest, TheEchoOfAnEditInterruptsNoneAndTheClockHasWhatWasTyped) {
  clock().setPlayMode(VLPlayModeLoop);
  type(Time::main, "102030");
  type(Time::offset, "010203");
  type(Time::second, "120000");
  type(Time::first, "110000");
  EXPECT_EQ(now(), "10:20:30:00");
  EXPECT_EQ(stringFromSMPTETime(clock().smpteOffset()), "01:02:03:00");
  EXPECT_EQ(stringFromSMPTETime(clock().loopStartTime()), "11:00:00:00");
  EXPECT_EQ(stringFromSMPTETime(clock().loopEndTime()), "12:00:00:00");
  clock().setPlayMode(VLPlayModeStop);
  type(Time::second, "103000");
  EXPECT_EQ(stringFromSMPTETime(clock().stopTime()), "10:30:00:00");
  type(Time::offset, "0");
  app().play();
  mHost.advance(10 * kFrame25);
  EXPECT_EQ(mCounters->edited(), std::nullopt);
  EXPECT_EQ(mCounters->stringValue().toStdString(), now());
  EXPECT_FALSE(mCounters->canEdit(Time::main));
}

TEST_F(VLTimecodeViewInAppTest, ATimeOfAnotherFormatIsPastedIntoTheFormatOfTheClock) {
  VLTimecodeView other;
  other.copyTime(timeOf("01:02:03:29", kSMPTETimeType30));
  other.setMainCounterIsEditable(true);
  other.beginEditing(Time::main);
  other.editor()->copy();
  for (const Time which : {Time::main, Time::offset}) {
    mCounters->beginEditing(which);
    mCounters->editor()->paste();
    mHost.settle();
  }
  EXPECT_EQ(now(), "01:02:04:04");
  EXPECT_EQ(stringFromSMPTETime(clock().smpteOffset()), "01:02:04:04");
}

}  // namespace
}  // namespace velor
