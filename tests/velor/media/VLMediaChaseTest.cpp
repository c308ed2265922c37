// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaChase.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/velor/media/MediaFixture.h"

namespace velor {
namespace {

using media::MediaTime;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::HasSubstr;

class VLMediaChaseTest : public MediaFixture {
 protected:
  VLMediaChaseTest() { mMedia.clips["long.mp4"].duration = seconds(600); }

  // By two frames, as readers of MTC show its time.
  const testing::Matcher<double> mBehind = testing::DoubleNear(-80, 1);
};

TEST_F(VLMediaChaseTest, ThePlayerIsStartedOnceAndKeepsStepWithTheClock) {
  const auto window = open("long.mp4", "01:00:00:00");
  EXPECT_EQ(outlet().title, "long.mp4");
  playFrom("01:00:00:00");
  pass(0.5);
  EXPECT_EQ(outlet().status, VLClockRolling);
  ASSERT_EQ(player().starts().size(), 1U);
  const auto& start = player().starts()[0];
  EXPECT_EQ(start.time - milliseconds(-80), MediaTime(start.hostTime - mBegin));
  EXPECT_THAT(ahead("01:00:00:00"), mBehind);
  pass(60);
  EXPECT_EQ(player().starts().size(), 1U);
  EXPECT_THAT(ahead("01:00:00:00"), mBehind);
  EXPECT_THAT(outlet().deviation, testing::StartsWith("0.000% [-"));
  EXPECT_THAT(outlet().mtcIn.back(), HasSubstr("MTC In: 01:01:00:"));

  clock().stop();
  pass(1);
  EXPECT_EQ(player().rate(), 0);
  EXPECT_EQ(outlet().status, VLClockStopped);
  EXPECT_EQ(outlet().deviation, "");
}

TEST_F(VLMediaChaseTest, ADifferenceOf80MillisecondsTakesTwoReportsToBeMadeGood) {
  const auto window = open("long.mp4", "01:00:00:00");
  playFrom("01:00:10:00");
  pass(1);
  player().setDrift(-0.01);  // 10 ms a second
  pass(5);
  EXPECT_EQ(player().starts().size(), 1U);
  EXPECT_TRUE(mLog.matching("resyncing").empty());
  pass(5);
  ASSERT_EQ(player().starts().size(), 2U);
  const auto found = mLog.matching("resyncing");
  ASSERT_EQ(found.size(), 1U);
  EXPECT_THAT(found[0], HasSubstr("media offset for long.mp4 is -0.08"));
  // Two more reports are 160 ms.
  player().setDrift(0);
  player().setRate(1, player().currentTime() + seconds(30), mHost.AudioGetCurrentHostTime());
  pass(0.2);
  EXPECT_EQ(player().starts().size(), 4U);  // with the one above
  EXPECT_THAT(ahead("01:00:00:00"), mBehind);

  // The clock jumps, forwards and backwards.
  for (const char* time : {"01:05:00:00", "01:00:30:00"}) {
    playFrom(time);
    pass(0.5);
    EXPECT_THAT(ahead("01:00:00:00"), mBehind) << time;
  }
}

TEST_F(VLMediaChaseTest, OutsideOfItTheClipStandsAndTheFieldSaysOnWhichSide) {
  const auto window = open("clip.mp4", "01:00:00:00");
  playFrom("00:59:59:00");
  pass(0.9);
  EXPECT_TRUE(player().starts().empty());
  EXPECT_THAT(outlet().mtcIn.back(), HasSubstr("MTC In: << 00:59:59:"));
  pass(0.6);
  EXPECT_EQ(player().rate(), 1);
  pass(9.8);
  EXPECT_EQ(player().rate(), 0);
  EXPECT_THAT(outlet().mtcIn.back(), HasSubstr("MTC In: >> 01:00:10:"));
  EXPECT_EQ(player().starts().size(), 1U);
  // A clip that stands there may be moved and started by the user.
  player().setRate(1, seconds(2), mHost.AudioGetCurrentHostTime());
  window->setOnline(false);
  pass(0.5);
  EXPECT_EQ(player().rate(), 1);
  EXPECT_THAT(outlet().mtcIn.back(), HasSubstr("MTC In:off >> 01:00:1"));
  window->setOnline(true);
  pass(0.2);
  EXPECT_EQ(player().rate(), 0);
}

TEST_F(VLMediaChaseTest, OnLineGatesTheStartAndNotWhatRuns) {
  const auto window = open("long.mp4", "01:00:00:00");
  window->setOnline(false);
  playFrom("01:00:01:00");
  pass(1);
  EXPECT_TRUE(player().starts().empty());
  EXPECT_THAT(outlet().mtcIn.back(), HasSubstr("MTC In:off 01:00:0"));
  window->setOnline(true);
  pass(0.2);
  EXPECT_EQ(player().starts().size(), 1U);
  // The chase wins over the user.
  window->mediaPlayer()->pause();
  EXPECT_EQ(player().rate(), 0);
  pass(0.5);
  EXPECT_EQ(player().rate(), 1);
  EXPECT_THAT(ahead("01:00:00:00"), mBehind);
  window->setOnline(false);
  pass(2);
  EXPECT_EQ(player().rate(), 1);
  clock().stop();
  pass(1);
  EXPECT_EQ(player().rate(), 0);
}

TEST_F(VLMediaChaseTest, AClipThatIsOpenedUnderwayStartsWithinTwoReportsOfBeingReady) {
  mMedia.clips["slow.mp4"].openTime = seconds(2);
  const auto window = shown(VLMediaPlaybackWindowController::initWithDelegate(mApp));
  window->setClipStartTime(timeOf("01:00:00:00"));
  playFrom("01:00:01:00");
  window->loadMediumAtURL(fileNamed("slow.mp4"));
  pass(1.99);
  EXPECT_FALSE(window->isReady());
  EXPECT_TRUE(player().starts().empty());
  pass(0.2);
  EXPECT_TRUE(window->isReady());
  EXPECT_EQ(player().starts().size(), 1U);
  EXPECT_THAT(ahead("01:00:00:00"), mBehind);
  player().fail("the disk has gone");
  mHost.settle();
  EXPECT_EQ(outlet().errors, std::vector<std::string>{"the disk has gone"});
  mLog.clear();
  pass(1);
  EXPECT_EQ(player().starts().size(), 1U);
  EXPECT_THAT(mLog.matching(" sec"), testing::IsEmpty());  // of starts and offsets
}

TEST_F(VLMediaChaseTest, TheStartFollowsTheSpeedOfTheSourceUnlessToldNotTo) {
  const auto window = open("long.mp4", "01:00:00:00");
  clock().setPlayRate(1.01);
  playFrom("01:00:01:00");
  // Known to nine tenths at the start; the reports after it say the rest.
  pass(0.5);
  EXPECT_NEAR(static_cast<double>(player().starts()[0].rate), 1.0091, 0.0001);
  pass(20);
  const auto& starts = player().starts();
  EXPECT_NEAR(static_cast<double>(starts.back().rate), 1.01, 0.00002);
  const std::size_t count = starts.size();
  EXPECT_LT(count, 10U);
  const auto led = [&] {  // ms, since a fast clock covers more in the two frames
    return std::chrono::duration<double, std::milli>(player().currentTime()).count() + 80 -
           (1000 + 1.01e-6 * static_cast<double>(mHost.AudioGetCurrentHostTime() - mBegin));
  };
  EXPECT_NEAR(led(), 0, 0.5);
  // Without it the clip starts at its own speed, and nothing corrects that.
  window->setAdjustSpeed(false);
  window->setClipStartTimeString("none");  // ignored
  pass(1);
  EXPECT_EQ(starts.size(), count);
  window->setClipStartTimeString("01:00:00:00");
  pass(1);
  EXPECT_EQ(starts.size(), count + 1);
  EXPECT_EQ(starts.back().rate, 1);
  EXPECT_NEAR(led(), -9, 2);
}

TEST_F(VLMediaChaseTest, WindowsFollowTheSameStreamEachFromItsOwnStart) {
  open("long.mp4", "01:00:00:00");
  const auto second = open("clip.mp4", "01:00:05:00");
  playFrom("01:00:04:00");
  pass(0.9);
  EXPECT_EQ(player(0).rate(), 1);
  EXPECT_EQ(player(1).rate(), 0);
  pass(2);
  EXPECT_THAT(ahead("01:00:00:00", 0), mBehind);
  EXPECT_THAT(ahead("01:00:05:00", 1), mBehind);
  second->windowWillClose();
  EXPECT_EQ(player(1).rate(), 0);
  EXPECT_EQ(mApp->calls, std::vector<std::string>{"closed"});
  pass(1);
  EXPECT_EQ(player(1).rate(), 0);
  EXPECT_EQ(player(0).rate(), 1);
}

}  // namespace
}  // namespace velor
