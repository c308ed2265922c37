// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/media/VLMediaBookmark.h"
#include "tests/velor/media/MediaFixture.h"

namespace velor {
namespace {

using Calls = std::vector<std::string>;
using std::chrono::seconds;
using testing::HasSubstr;

using VLMediaPlaybackWindowTest = MediaFixture;

TEST_F(VLMediaPlaybackWindowTest, TheControlsDriveTheClockWhereTheyShouldAndElseThePlayer) {
  const auto window = open("clip.mp4", "01:00:00:00");
  const auto& controls = *window->mediaPlayer();
  window->mediaPlayer()->play();
  EXPECT_EQ(player().rate(), 1);
  window->mediaPlayer()->setRate(0);
  EXPECT_EQ(player().rate(), 0);
  controls.player().seekToTime(seconds(3), {});
  pass(1);
  EXPECT_EQ(mApp->calls, Calls{});

  window->changeControlMasterClock();
  window->mediaPlayer()->play();
  window->mediaPlayer()->setRate(1);
  EXPECT_EQ(player().rate(), 0);
  controls.player().setRate(1);
  window->mediaPlayer()->pause();
  window->mediaPlayer()->setRate(0.5F);  // from one rate to another: nobody is asked
  EXPECT_EQ(player().rate(), 0.5F);
  controls.player().seekToTime(seconds(4), {});  // while it runs: no locate
  pass(1);
  window->mediaPlayer()->pauseInEveryCase();
  EXPECT_EQ(mApp->calls, (Calls{"play", "play", "stop"}));
  controls.player().seekToTime(seconds(5), {});
  pass(1);
  EXPECT_EQ(mApp->calls.back(), "01:00:05:00");
}

TEST_F(VLMediaPlaybackWindowTest, StopsAndFullFramesAreNoScrubs) {
  const auto window = open("clip.mp4", "01:00:00:00");
  window->setControlMasterClock(true);
  // A clock that stands sends a full frame; two come faster than a seek takes.
  for (const char* time : {"01:00:02:00", "01:00:03:00"}) {
    clock().setTime(timeOf(time));
    pass(0.05);
  }
  EXPECT_EQ(outlet().mtcIn.back(), "MTC In: 01:00:03:00");
  pass(1);
  EXPECT_EQ(player().currentTime(), seconds(3));
  clock().setTime(timeOf("01:00:20:00"));  // outside
  pass(1);
  EXPECT_EQ(outlet().mtcIn.back(), "MTC In: 01:00:20:00");
  EXPECT_EQ(player().currentTime(), seconds(3));

  playFrom("01:00:05:00");
  pass(1);
  EXPECT_EQ(player().rate(), 1);
  clock().stop();
  while (player().rate() != 0) {
    pass(0.01);
  }
  player().seekToTime(seconds(1), {});
  pass(0.4);
  EXPECT_EQ(mApp->calls, Calls{});
  pass(0.2);
  player().seekToTime(seconds(2), {});
  pass(1);
  EXPECT_EQ(mApp->calls, Calls{"01:00:02:00"});
}

TEST_F(VLMediaPlaybackWindowTest, AnotherFormatKeepsTheRealTimeOfTheStart) {
  clock().setSmpteOffset(timeOf("00:10:00:05"));
  const auto window = shown(VLMediaPlaybackWindowController::initWithDelegate(mApp));
  EXPECT_EQ(window->clipStartTimeString(), "00:10:00:05");  // the clock's offset
  EXPECT_EQ(outlet().title, "Media Playback");
  ASSERT_TRUE(outlet().panel);
  clock().setSmpteFormat(kSMPTETimeType30);
  KVNotificationCenter::defaultCenter().post(VLChangedTimecodeType, kSMPTETimeType30);
  EXPECT_EQ(window->clipStartTimeString(), "00:10:00:06");
  outlet().panel({});
  EXPECT_TRUE(outlet().isClosed);
}

TEST_F(VLMediaPlaybackWindowTest, AStateBringsItsSettingsOnceTheClipIsReady) {
  mMedia.clips["clip.mp4"].title = "Walk-in";
  const auto first = open("clip.mp4", "01:00:00:05");
  EXPECT_EQ(outlet().title, "Walk-in");
  EXPECT_EQ(first->audioSumMode(), VLMonoSumTap::kNoSumming);
  EXPECT_TRUE(first->adjustSpeed());
  first->setAudioSumMode(1);
  first->setControlMasterClock(true);
  first->setOnline(false);
  first->setAdjustSpeed(false);
  first->mediaPlayer()->player().setVolume(0.25F);
  const auto state = first->encodedState(mFolder.path());

  // The document's folder has moved, with its clip.
  const test::TemporaryFolder moved;
  std::filesystem::rename(mFolder.path() / "clip.mp4", moved.path() / "clip.mp4");
  const auto second =
      shown(VLMediaPlaybackWindowController::initWithEncodedState(state, moved.path(), mApp));
  EXPECT_EQ(second->clipStartTimeString(), "01:00:00:05");
  // Before the clip is ready, nothing is lost by a save.
  EXPECT_EQ(second->encodedState({})->volume, 0.25F);
  pass(0.1);
  EXPECT_EQ(second->mediumURL(), moved.path() / "clip.mp4");
  EXPECT_EQ(second->audioSumMode(), 1);
  EXPECT_TRUE(second->controlMasterClock());
  EXPECT_FALSE(second->online());
  EXPECT_FALSE(second->adjustSpeed());
  EXPECT_EQ(second->mediaPlayer()->player().volume(), 0.25F);

  // Without the clip it asks, and keeps the state until it gets an answer.
  std::filesystem::remove(moved.path() / "clip.mp4");
  const auto third =
      shown(VLMediaPlaybackWindowController::initWithEncodedState(state, moved.path(), mApp));
  EXPECT_EQ(third->encodedState({}), state);
  EXPECT_EQ(mLog.matching("is missing").size(), 1U);
  ASSERT_TRUE(outlet(2).panel);
  outlet(2).panel(fileNamed("other.mp4"));
  pass(0.1);
  EXPECT_TRUE(third->online());
  EXPECT_EQ(third->mediaPlayer()->player().volume(), 1);
}

TEST_F(VLMediaPlaybackWindowTest, AClipThatCannotBeOpenedIsReportedAndTheWindowStays) {
  mMedia.clips["words.mp4"].error = "words.mp4: not a clip";
  const auto window = shown(VLMediaPlaybackWindowController::initWithDelegate(mApp));
  window->loadMediumAtURL(mFolder.path());
  EXPECT_EQ(window->mediaPlayer(), nullptr);
  EXPECT_EQ(mLog.count("error: failed to load medium: " + mFolder.path().string()), 1);
  playFrom("00:00:01:00");
  pass(1);
  window->loadMediumAtURL(fileNamed("words.mp4"));
  pass(1);
  EXPECT_EQ(mLog.count("error: ERROR: media player words.mp4 failed words.mp4: not a clip"), 1);
  ASSERT_EQ(outlet().errors.size(), 2U);
  EXPECT_THAT(outlet().errors[0], HasSubstr("not a regular file"));
  // Another clip in the same window keeps its settings, and a cancel changes nothing.
  window->setAdjustSpeed(false);
  window->setVolume(0.5F);
  window->runOpenPanel();
  outlet().panel({});
  EXPECT_EQ(window->error(), "words.mp4: not a clip");
  window->runOpenPanel();
  outlet().panel(fileNamed("clip.mp4"));
  pass(1);
  EXPECT_EQ(player(1).rate(), 1);
  EXPECT_EQ(window->error(), "");
  EXPECT_FALSE(window->adjustSpeed());
  EXPECT_EQ(window->volume(), 0.5F);
}

TEST(VLMediaBookmark, TakesAnyBytesAndPrefersTheFileThatWasPicked) {
  const test::TemporaryFolder folder;
  const std::string odd = "a@b:\xFF \n.mp4";
  std::ofstream(folder.path() / odd) << "";
  const auto data = VLMediaBookmark::of(folder.path() / odd, folder.path()).data();
  EXPECT_EQ(VLMediaBookmark::fromData(data).resolve("/nowhere"), folder.path() / odd);
  const test::TemporaryFolder copied;
  std::filesystem::copy(folder.path() / odd, copied.path() / odd);
  EXPECT_EQ(VLMediaBookmark::fromData(data).resolve(copied.path()), folder.path() / odd);
  std::filesystem::remove(folder.path() / odd);
  EXPECT_EQ(VLMediaBookmark::fromData(data).resolve(copied.path()), copied.path() / odd);
  EXPECT_EQ(VLMediaBookmark::fromData(data).resolve({}), std::nullopt);
  EXPECT_EQ(VLMediaBookmark::fromData({}).resolve(copied.path()), std::nullopt);
}

}  // namespace
}  // namespace velor
