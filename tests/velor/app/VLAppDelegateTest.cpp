// SPDX-License-Identifier: MIT
#include "Velor/app/VLAppDelegate.h"

#include <gtest/gtest.h>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "tests/support/LogRecord.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

using Calls = std::vector<std::string>;

class VLAppDelegateTest : public AppFixture {
 protected:
  VLAppDelegateTest() { launch(); }

  // The one question that waits, with its buttons.
  std::string answered(bool isDefault) {
    const VLAlert alert = mWindow->answer(isDefault);
    return alert.title + "\n" + alert.message + "\n" + alert.defaultButton + "/" +
           alert.otherButton;
  }
};

TEST_F(VLAppDelegateTest, APlayTakesTheClockOffItsSourceAndTheStopPutsItBackIfItIsStillThere) {
  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().arm();
  takeCalls();
  app().play();
  EXPECT_EQ(clock().status(), VLClockRolling);
  EXPECT_EQ(app().syncSource(), nullptr);
  mHost.advance(10 * kFrame25);
  EXPECT_EQ(mView->clockStatus(), VLClockRolling);
  EXPECT_EQ(stringFromSMPTETime(mView->smpteTime()), "00:00:00:10");
  app().play();  // runs already
  app().stop();
  mHost.settle();
  EXPECT_EQ(clock().status(), VLClockArmed);
  ASSERT_NE(app().syncSource(), nullptr);
  EXPECT_TRUE(app().syncSource()->isEqual(*deck));
  EXPECT_EQ(takeCalls(), (Calls{"arm off clockTemplate", "start playTemplate green",
                                "stop stopTemplate black", "start playTemplate black",
                                "stop stopTemplate red", "arm on clockTemplate blue"}));

  app().play();
  mOutside->vanish(deck->endpoint());
  mHost.advance(kFrame25);
  app().stop();
  mHost.settle();
  EXPECT_EQ(clock().status(), VLClockStopped) << "of a source that went nothing can come";
}

TEST_F(VLAppDelegateTest, ASourceThatVanishesDropsAndDisarmsTheClock) {
  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().arm();
  const auto other = addSource("other");
  EXPECT_EQ(clock().status(), VLClockArmed);
  mOutside->vanish(deck->endpoint());
  mHost.settle();
  EXPECT_EQ(app().syncSource(), nullptr);
  EXPECT_EQ(clock().status(), VLClockStopped);

  const LogRecord log;
  clock().arm();  // with none, which lasts until anything changes in the system
  mOutside->vanish(other->endpoint());
  mHost.settle();
  EXPECT_EQ(clock().status(), VLClockStopped);
  EXPECT_EQ(log.count("set MIDI sync source: (none)"), 0) << "at every change of the setup";
}

TEST_F(VLAppDelegateTest,
       AStopOfAClockThatStandsGoesBackThroughTheStartsAndEachWayBackCanBeUndone) {
  goTo("01:00:00:00");
  runFor(50);
  EXPECT_EQ(now(), "01:00:02:00");
  runFor(25);
  EXPECT_EQ(now(), "01:00:03:00");
  app().undoManager().removeAllActions();
  app().stop();
  EXPECT_EQ(now(), "01:00:02:00");
  EXPECT_EQ(app().undoManager().undoActionName(), "change start time 01:00:03:00");
  app().stop();
  EXPECT_EQ(now(), "01:00:00:00");
  mView->setStartTime(timeOf("00:59:00:00"));
  app().stop();
  EXPECT_EQ(now(), "00:59:00:00") << "behind the history comes what the counter shows";
  app().stop();
  EXPECT_EQ(now(), "00:59:00:00");
  for (const char* earlier : {"01:00:00:00", "01:00:02:00", "01:00:03:00"}) {
    app().undoManager().undo();
    EXPECT_EQ(now(), earlier);
  }
  EXPECT_FALSE(app().undoManager().canUndo()) << "a stop that moved nothing is no step";
  EXPECT_EQ(app().undoManager().redoActionName(), "change start time 01:00:02:00");

  // With the control key it returns to zero, and keeps the history.
  runFor(5);
  mWindow->controlKey = true;
  app().stop();
  EXPECT_EQ(now(), "00:00:00:00");
  mWindow->controlKey = false;
  app().stop();
  EXPECT_EQ(now(), "01:00:03:00");
}

TEST_F(VLAppDelegateTest,
       ALocateOfARunningClockCannotBeUndoneAnInvalidOneIsIgnoredAndASentOneHasTheOffset) {
  app().play();
  goTo("02:00:00:00");
  mHost.advance(kFrame25);
  EXPECT_EQ(now(), "02:00:00:01");
  EXPECT_FALSE(app().undoManager().canUndo());
  app().stop();
  mHost.settle();
  const std::string before = now();
  app().setCurrentTime(std::make_shared<KVSMPTETime>());
  EXPECT_EQ(now(), before);
  app().setCurrentSMPTETime({});
  EXPECT_EQ(now(), before);
  clock().setSmpteOffset(timeOf("01:00:00:00"));
  app().setCurrentSMPTETime(timeOf("03:00:00:10"));
  EXPECT_EQ(now(), "02:00:00:10");
}

TEST_F(VLAppDelegateTest,
       AChangeOfFormatConvertsTheHistoryByRealTimeAndIsPostedARefusedOneDoesNeither) {
  std::vector<std::uint32_t> posted;
  const KVObserverToken token = KVNotificationCenter::defaultCenter().addObserver(
      "Velor.ChangedTimecodeType", [&posted](const KVNotification& notification) {
        posted.push_back(std::any_cast<std::uint32_t>(notification.object));
      });
  goTo("00:00:01:04");  // a conversion from 25 to 25 would give the frame before
  app().play();
  clock().setSmpteFormat(kSMPTETimeType30);
  mHost.settle();
  app().stop();
  mHost.settle();
  clock().setSmpteFormat(kSMPTETimeType25);
  mHost.settle();
  app().stop();
  EXPECT_EQ(now(), "00:00:01:04");

  posted.clear();
  goTo("00:00:10:20");
  runFor(5);
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_EQ(posted, std::vector<std::uint32_t>{kSMPTETimeType30});
  EXPECT_EQ(stringFromSMPTETime(mView->smpteTime()), "00:00:11:00");
  app().stop();
  EXPECT_EQ(now(), "00:00:10:24") << "20 of 25 frames are 24 of 30";
}

TEST_F(VLAppDelegateTest, MTCOfAnotherFormatSetsTheFormatOrDisarmsAsTheUserWants) {
  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().arm();
  playBlocks(*deck, 4, 10, kRate30);
  const std::string message =
      "The clock receives MTC on deck at 30 fps, which does not match the currently set format of "
      "25 fps";
  EXPECT_EQ(answered(true), "Wrong SMPTE Format\n" + message + "\nuse 30 fps/Cancel");
  EXPECT_TRUE(mLog.has(message));
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType30);
  EXPECT_EQ(clock().status(), VLClockArmed);
  playBlocks(*deck, 1, 11, kRate30);
  EXPECT_EQ(clock().status(), VLClockChasing);
  app().stop();
  EXPECT_EQ(clock().status(), VLClockChasing) << "a stop press does nothing to it";

  mHost.advance(1'000'000'000);
  playBlocks(*deck, 4, 10);
  mWindow->answer(false);
  EXPECT_EQ(clock().status(), VLClockStopped);
  EXPECT_TRUE(mLog.has("user clicked cancel, will disarm"));
}

TEST_F(VLAppDelegateTest, ALoopIsReportedWithBothNamesAndTheDestinationSwitchedOffIfTheUserWants) {
  const auto deck = addSource("deck");
  const auto desk = appear("desk");
  destinationOf(desk)->setEnable(true);
  for (const bool disables : {false, true}) {
    app().clockDetectedMTCLoop(clock(), deck, std::make_shared<KVMIDIEndpoint>(desk));
    EXPECT_EQ(answered(disables),
              "MIDI/MTC Loop detected!\nThere appears to be a MIDI loop between \"deck\" and "
              "\"desk\". For correct operation \"desk\" should not be a MTC Destination\n"
              "Disable desk/Proceed anyway");
    EXPECT_EQ(destinationOf(desk)->enable(), !disables);
  }
  EXPECT_TRUE(app().clockShouldCheckForMTCLoop(clock()));
  app().setDisableMTCLoopCheck(true);
  EXPECT_FALSE(app().clockShouldCheckForMTCLoop(clock()));
}

TEST_F(VLAppDelegateTest, AQuitAsksWhileAnythingRunsAndShowsWhatDoes) {
  EXPECT_EQ(app().applicationShouldTerminate(), VLAppDelegate::TerminateReply::now);
  const auto generator = created();
  inputOf(*generator)->setEnable(true);
  app().play();
  mHost.advance(20 * kFrame25);
  takeCalls();
  EXPECT_EQ(app().applicationShouldTerminate(), VLAppDelegate::TerminateReply::later);
  EXPECT_TRUE(mWindow->alerts.empty()) << "by the main queue";
  mHost.settle();
  EXPECT_EQ(
      answered(false),
      "Devices are running - Quit anyway?\nDo you really want to quit Velor? Some devices are "
      "currently running and generating timecode.\nYes/No");
  EXPECT_EQ(takeCalls(), Calls{"window of LTC Generator 1"});
  EXPECT_EQ(mWindow->reply, false);
  EXPECT_TRUE(clock().running());
}

TEST_F(VLAppDelegateTest, TheStartTimeReachesTheViewOnTheMainThreadWhoeverChangedIt) {
  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().arm();
  // The locate comes on the MIDI thread.
  mOutside->play(deck->endpoint(), mHost.AudioGetCurrentHostTime(),
                 {0xF0, 0x7F, 0x7F, 0x01, 0x01, kRate25 << 5 | 7, 0, 0, 0, 0xF7});
  mHost.settle();
  EXPECT_EQ(now(), "07:00:00:00");
  EXPECT_EQ(stringFromSMPTETime(mView->startTime()), "07:00:00:00");
}

TEST_F(VLAppDelegateTest, TheCountersSetAClockThatStandsAndItsPointsAtAnyTime) {
  using View = VLTimecodeViewOutlet;
  using Delegate = VLTimecodeViewDelegate;
  const auto edit = [this](void (View::*set)(const SMPTETime&), const char* text,
                           void (Delegate::*changed)(View&)) {
    ((*mView).*set)(timeOf(text));
    ((*mView->delegate()).*changed)(*mView);
  };
  EXPECT_EQ(stringFromSMPTETime(mView->stopTime()), "01:00:00:00") << "at the first start";
  edit(&View::setSmpteTime, "01:02:03:04", &Delegate::timecodeDidChange);
  edit(&View::setSmpteOffset, "00:00:01:00", &Delegate::offsetDidChange);
  EXPECT_EQ(now(), "01:02:03:04");
  EXPECT_EQ(stringFromSMPTETime(clock().smpteOffset()), "00:00:01:00");
  EXPECT_TRUE(mLog.has("clock offset did change: 00:00:01:00"));
  EXPECT_TRUE(mView->delegate()->canEditOffsetInTimecodeView(*mView));
  app().play();
  EXPECT_FALSE(mView->delegate()->canEditOffsetInTimecodeView(*mView));
  EXPECT_TRUE(mView->delegate()->canEditStopTimeInTimecodeView(*mView));
  edit(&View::setSmpteTime, "05:00:00:00", &Delegate::timecodeDidChange);
  edit(&View::setSmpteOffset, "05:00:00:00", &Delegate::offsetDidChange);
  edit(&View::setStopTime, "06:00:00:00", &Delegate::stopTimeDidChange);
  edit(&View::setLoopEndTime, "03:00:00:00", &Delegate::loopEndTimeDidChange);
  edit(&View::setLoopStartTime, "02:00:00:00", &Delegate::loopStartTimeDidChange);
  EXPECT_EQ(now(), "01:02:03:04");
  EXPECT_EQ(stringFromSMPTETime(clock().smpteOffset()), "00:00:01:00");
  EXPECT_EQ(stringFromSMPTETime(clock().stopTime()), "06:00:00:00");
  EXPECT_EQ(stringFromSMPTETime(clock().loopStartTime()), "02:00:00:00");
  EXPECT_EQ(stringFromSMPTETime(clock().loopEndTime()), "03:00:00:00");
}

}  // namespace
}  // namespace velor
