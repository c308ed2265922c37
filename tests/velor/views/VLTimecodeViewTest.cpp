// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeView.h"

#include <QAccessible>
#include <QPushButton>
#include <memory>
#include <string>
#include <vector>

#include "Velor/clock/VLClockStatus.h"
#include "Velor/views/VLTimecodeTextView.h"
#include "tests/velor/views/ViewFixture.h"

namespace velor {
namespace {

using Time = VLTimecodeView::Time;

/// Notes what it is told, and echoes an offset as the clock does.
class Delegate final : public VLTimecodeViewDelegate {
 public:
  void timecodeDidChange(VLTimecodeViewOutlet& view) override { note("main", view.smpteTime()); }
  void offsetDidChange(VLTimecodeViewOutlet& view) override {
    note("offset", view.smpteOffset());
    view.setSmpteOffset(view.smpteOffset());
  }
  void stopTimeDidChange(VLTimecodeViewOutlet& view) override { note("stop", view.stopTime()); }
  void loopStartTimeDidChange(VLTimecodeViewOutlet& view) override {
    note("loop start", view.loopStartTime());
  }
  void loopEndTimeDidChange(VLTimecodeViewOutlet& view) override {
    note("loop end", view.loopEndTime());
  }
  bool canEditOffsetInTimecodeView(const VLTimecodeViewOutlet& /*view*/) const override {
    return canEditOffset;
  }
  bool canEditStopTimeInTimecodeView(const VLTimecodeViewOutlet& /*view*/) const override {
    return canEditStop;
  }

  std::vector<std::string> calls;
  bool canEditOffset = true;
  bool canEditStop = true;

 private:
  void note(const std::string& what, const SMPTETime& time) {
    calls.push_back(what + " " + stringFromSMPTETime(time));
  }
};

class VLTimecodeViewTest : public ViewFixture {
 protected:
  VLTimecodeViewTest() {
    mView.setDelegate(mDelegate);
    mView.setMainCounterIsEditable(true);
    mView.copyTime(timeOf("10:20:30:12"));
    mView.setSmpteOffset(timeOf("00:00:00:00"));
    mView.setStartTime(timeOf("01:00:00:00"));
    mView.setStopTime(timeOf("02:00:00:00"));
    mView.setLoopStartTime(timeOf("03:00:00:00"));
    mView.setLoopEndTime(timeOf("04:00:00:00"));
    show({&mView, &mNext}, {800, 140});
  }
  void edit(Time which) {
    click(mView, mView.frame(which).topLeft() + QPointF(4, 8));
    ASSERT_EQ(mView.edited(), which);
    mView.editor()->setSelectedRange(0);
  }
  void editMain() {
    click(mView, mView.cell(Time::main).frameOfCharacter(mView.frame(Time::main), 0).center());
    ASSERT_EQ(mView.edited(), Time::main);
  }
  std::string shown(Time which) const { return mView.cell(which).stringValue().toStdString(); }
  /// Presses each key at the pair on a time, and gives the text and the pair then selected.
  std::string after(const std::string& time, std::uint32_t format, qsizetype pair,
                    std::initializer_list<Qt::Key> keys) {
    mView.copyTime({});
    mView.copyTime(timeOf(time, format));
    editMain();
    mView.editor()->setSelectedRange(pair);
    for (const Qt::Key key : keys) {
      press(key);
    }
    return mView.editor()->text().toStdString() + " " +
           std::to_string(mView.editor()->selectionStart());
  }

  const std::shared_ptr<Delegate> mDelegate = std::make_shared<Delegate>();
  VLTimecodeView mView;
  QPushButton mNext;
};

TEST_F(VLTimecodeViewTest, KeysChangeThePairThatIsSelected) {
  constexpr auto k25 = kSMPTETimeType25;
  constexpr auto kDrop = kSMPTETimeType2997Drop;
  const struct {
    const char* time;
    std::uint32_t format;
    qsizetype pair;
    std::initializer_list<Qt::Key> keys;
    const char* expected;
  } kRows[] = {
      {"10:20:30:12", k25, 0, {Qt::Key_2}, "02:20:30:12 0"},
      {"10:20:30:12", k25, 0, {Qt::Key_2, Qt::Key_5}, "01:20:30:12 3"},
      {"10:20:30:12", k25, 6, {Qt::Key_7, Qt::Key_5}, "10:20:15:12 9"},
      {"10:20:30:12", k25, 9, {Qt::Key_2, Qt::Key_6}, "10:20:30:01 0"},
      {"10:20:30:12", k25, 0, {Qt::Key_2, Qt::Key_Tab, Qt::Key_5}, "02:05:30:12 3"},
      {"10:20:30:29", kSMPTETimeType30, 9, {Qt::Key_Up}, "10:20:31:00 9"},
      {"23:59:59:24", k25, 9, {Qt::Key_Up}, "00:00:00:00 9"},
      {"00:00:00:00", k25, 0, {Qt::Key_Down}, "23:00:00:00 0"},
      {"00:00:59;29", kDrop, 9, {Qt::Key_Up}, "00:01:00;02 9"},
      {"00:01:00;02", kDrop, 9, {Qt::Key_Down}, "00:00:59;29 9"},
      {"00:10:00;02", kDrop, 9, {Qt::Key_Down}, "00:10:00;01 9"},
      {"10:20:30:12", k25, 3, {Qt::Key_Backspace}, "10:00:30:12 3"},
      {"10:20:30:12", k25, 3, {Qt::Key_Delete}, "00:00:00:00 3"},
      {"10:20:30:12", k25, 9, {Qt::Key_Right}, "10:20:30:12 0"},
      {"10:20:30:12", k25, 0, {Qt::Key_Left}, "10:20:30:12 9"},
      {"10:20:30:12", k25, 0, {Qt::Key_Backtab}, "10:20:30:12 0"},
      {"10:20:30:12", k25, 6, {Qt::Key_Backtab}, "10:20:30:12 3"},
      {"10:20:30:12", k25, 6, {Qt::Key_Space, Qt::Key_A, Qt::Key_Home}, "10:20:30:12 6"},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(after(row.time, row.format, row.pair, row.keys), row.expected)
        << row.time << " at " << row.pair;
  }
}

TEST_F(VLTimecodeViewTest, AClickSelectsThePairUnderItAndEachChangeIsReportedAtOnce) {
  const QRectF frame = mView.frame(Time::main);
  click(mView, mView.cell(Time::main).frameOfCharacter(frame, 7).center());
  ASSERT_EQ(mView.edited(), Time::main);
  EXPECT_TRUE(mView.editor()->secondsSelected());
  click(*mView.editor(), mView.editor()->frameOfCharacter(3).center());
  EXPECT_TRUE(mView.editor()->minutesSelected());
  type("45");
  EXPECT_EQ(mDelegate->calls, (std::vector<std::string>{"main 10:04:30:12", "main 10:45:30:12"}));
  EXPECT_EQ(shown(Time::main), "10:45:30:12");
  mView.copyTime(timeOf("10:45:30:12"));
  EXPECT_EQ(mView.edited(), Time::main);
  mView.copyTime(timeOf("10:45:30:13"));
  EXPECT_EQ(mView.edited(), std::nullopt);
  EXPECT_EQ(shown(Time::main), "10:45:30:13");
}

TEST_F(VLTimecodeViewTest, EachTimeReachesItsOwnMessageAndAnEchoEndsNoEdit) {
  edit(Time::offset);
  type("12");
  EXPECT_EQ(mView.edited(), Time::offset);
  mView.setPlayMode(VLPlayModeLoop);
  EXPECT_EQ(mView.edited(), Time::offset);
  edit(Time::first);
  type("2");
  mView.setLoopStartTime(timeOf("02:00:00:00"));
  EXPECT_EQ(mView.edited(), Time::first);
  edit(Time::second);
  type("5");
  mView.setLoopEndTime(timeOf("05:00:00:00"));
  EXPECT_EQ(mView.edited(), Time::second);
  mView.setPlayMode(VLPlayModeStop);
  EXPECT_EQ(mView.edited(), std::nullopt);
  edit(Time::second);
  type("6");
  EXPECT_EQ(mDelegate->calls,
            (std::vector<std::string>{"offset 01:00:00:00", "offset 12:00:00:00",
                                      "loop start 02:00:00:00", "loop end 05:00:00:00",
                                      "stop 06:00:00:00"}));
  EXPECT_EQ(stringFromSMPTETime(mView.startTime()), "01:00:00:00");
}

TEST_F(VLTimecodeViewTest, WhatComesFromTheClockEndsTheEditsThatItWouldContradict) {
  const auto ends = [this](Time which, const std::function<void()>& change) {
    mDelegate->canEditOffset = mDelegate->canEditStop = true;
    mView.setMainCounterIsEditable(true);
    mView.setPlayMode(VLPlayModeLoop);
    which == Time::main ? editMain() : edit(which);
    change();
    const bool hasEnded = mView.edited() == std::nullopt;
    EXPECT_EQ(mView.editor()->isVisible(), !hasEnded);
    return hasEnded;
  };
  for (const Time which : {Time::offset, Time::first, Time::second}) {
    EXPECT_TRUE(ends(which, [this] { mView.setClockStatus(VLClockRolling); }));
  }
  EXPECT_FALSE(ends(Time::main, [this] { mView.setClockStatus(VLClockStopped); }));
  EXPECT_TRUE(ends(Time::main, [this] { mView.setMainCounterIsEditable(false); }));
  EXPECT_FALSE(ends(Time::offset, [this] { mView.setMainCounterIsEditable(false); }));
  EXPECT_TRUE(ends(Time::offset, [this] {
    mDelegate->canEditOffset = false;
    mView.setMainCounterIsEditable(false);
  }));
  EXPECT_TRUE(ends(Time::offset, [this] { mView.setSmpteOffset(timeOf("09:00:00:00")); }));
  EXPECT_TRUE(ends(Time::second, [this] { mView.setLoopEndTime(timeOf("09:00:00:00")); }));
  EXPECT_FALSE(ends(Time::first, [this] { mView.setLoopStartTime(timeOf("09:00:00:00")); }));
  EXPECT_TRUE(ends(Time::first, [this] { mView.setPlayMode(VLPlayModeNormal); }));
  EXPECT_FALSE(ends(Time::offset, [this] { mView.setPlayMode(VLPlayModeNormal); }));
}

TEST_F(VLTimecodeViewTest, NothingThatMayNotBeEditedIs) {
  mView.setMainCounterIsEditable(false);
  mDelegate->canEditOffset = false;
  for (const Time which : {Time::main, Time::offset, Time::first}) {
    click(mView, mView.frame(which).center());
    EXPECT_EQ(mView.edited(), std::nullopt);
  }
  edit(Time::second);
  click(mView, mView.boxFrame(3).center());  // none of the times
  EXPECT_EQ(mView.edited(), Time::second);
}

TEST_F(VLTimecodeViewTest, TheKeyboardReachesEveryTimeThatCanBeEdited) {
  mView.setPlayMode(VLPlayModeLoop);
  mNext.setFocus();
  press(Qt::Key_Tab);
  ASSERT_TRUE(mView.hasFocus());
  for (const Time which : {Time::main, Time::offset, Time::first, Time::second}) {
    EXPECT_EQ(mView.focused(), which);
    press(Qt::Key_Tab);
  }
  EXPECT_TRUE(mNext.hasFocus());
  press(Qt::Key_Backtab);
  EXPECT_EQ(mView.focused(), Time::second);
  press(Qt::Key_Backtab);
  press(Qt::Key_Return);
  EXPECT_EQ(mView.edited(), Time::first);
  press(Qt::Key_Return);
  EXPECT_EQ(mView.edited(), std::nullopt);
  EXPECT_EQ(mWindow.focusWidget(), nullptr);

  editMain();
  for (int i = 0; i < 4; ++i) {
    press(Qt::Key_Tab);
  }
  EXPECT_EQ(mView.edited(), std::nullopt);
  EXPECT_TRUE(mNext.hasFocus());
  editMain();
  press(Qt::Key_Escape);
  EXPECT_EQ(mView.edited(), std::nullopt);
}

TEST_F(VLTimecodeViewTest, ATimeIsCopiedWithItsFormatAndPastedByItsDigits) {
  mView.setClockStatus(VLClockStopped);
  mView.copyTime(timeOf("01:02:03:29", kSMPTETimeType30));
  editMain();
  press(Qt::Key_C, Qt::ControlModifier);
  mView.copyTime(timeOf("00:00:00:00"));
  editMain();
  press(Qt::Key_V, Qt::ControlModifier);
  EXPECT_EQ(mDelegate->calls, (std::vector<std::string>{"main 01:02:04:04"}));
  EXPECT_EQ(mView.smpteTime().mType, kSMPTETimeType25);
}

TEST_F(VLTimecodeViewTest, AFrameRepaintsTheTextAndTwoBoxesAndTheSameTimeNothing) {
  Painted painted(mView);
  mView.copyTime(timeOf("10:20:30:13"));
  settle();
  QRegion expected;
  expected += mView.boxFrame(12).toAlignedRect();
  expected += mView.boxFrame(13).toAlignedRect();
  expected += mView.cell(Time::main).textFrame(mView.frame(Time::main)).toAlignedRect();
  EXPECT_EQ(painted.take(), expected);
  mView.copyTime(timeOf("10:20:30:13"));
  settle();
  EXPECT_TRUE(painted.take().isEmpty());
}

TEST_F(VLTimecodeViewTest, AScreenReaderFindsTheTimesOfTheModeByNameWithTextAndStatus) {
  mView.setClockStatus(VLClockChasing);
  mView.setMainCounterIsEditable(false);
  const auto describe = [this] {
    std::string text;
    const QAccessibleInterface* view = QAccessible::queryAccessibleInterface(&mView);
    for (int i = 0; i < view->childCount(); ++i) {
      QAccessibleInterface* time = view->child(i);
      QAccessibleTextInterface* content = time->textInterface();
      text += time->text(QAccessible::Name).toStdString() + " " +
              content->text(0, content->characterCount()).toStdString() +
              (time->state().editable ? " editable, " : ", ");
      EXPECT_EQ(time->text(QAccessible::Description), "chasing");
      EXPECT_EQ(view->indexOfChild(time), i);
    }
    return text;
  };
  const std::string both = "Timecode 10:20:30:12, Offset 00:00:00:00 editable, ";
  EXPECT_EQ(describe(), both + "Start Time 01:00:00:00, ");
  mView.setPlayMode(VLPlayModeTimeOfDay);
  EXPECT_EQ(describe(), both);
  mView.setPlayMode(VLPlayModeStop);
  EXPECT_EQ(describe(), both + "Start Time 01:00:00:00, Stop Time 02:00:00:00 editable, ");
  mView.setPlayMode(VLPlayModeLoop);
  edit(Time::first);
  type("0");
  mView.setStopTime(timeOf("07:00:00:00"));
  EXPECT_EQ(describe(), both + "Loop Start 00:00:00:00 editable, Loop End 04:00:00:00 editable, ");
}

}  // namespace
}  // namespace velor
