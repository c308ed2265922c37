// SPDX-License-Identifier: MIT
// What code may rely on, whichever player the media service makes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/SystemHost.h"
#include "platform/media/MediaService.h"
#include "platform/media/gstreamer/GStreamerMedia.h"
#include "sim/SimulatedHost.h"
#include "sim/SimulatedMedia.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/Kind.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestClip.h"
#include "tests/support/Until.h"

namespace velor::media {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// A media service, and two files for it.
struct Setting {
  virtual ~Setting() = default;
  virtual MediaService& media() = 0;
  // A clip of 10 s at 25 frames a second with two channels of sound and the title "Test clip".
  virtual std::filesystem::path clip() = 0;
  // By which what is shown may be off.
  virtual MediaTime tolerance() = 0;

  std::filesystem::path file(const char* name, const std::string& contents) const {
    std::ofstream(folder.path() / name) << contents;
    return folder.path() / name;
  }
  // A regular file without any media.
  std::filesystem::path noMedia() const { return file("notes.mp4", "only words, many times over"); }

  test::TemporaryFolder folder;
};

struct SimulatedSetting final : Setting {
  SimulatedSetting() {
    mMedia.clips["clip.mp4"].title = "Test clip";
    mMedia.clips["notes.mp4"].error = "notes.mp4: not a clip";
  }
  MediaService& media() override { return mMedia; }
  std::filesystem::path clip() override { return file("clip.mp4", ""); }
  MediaTime tolerance() override { return milliseconds(10); }  // of its tick

  host::SimulatedHost mHost;
  SimulatedMedia mMedia;
};

// The service needs sound to go somewhere.
struct GStreamerSetting final : Setting {
  ~GStreamerSetting() override { audio::setService(nullptr); }
  MediaService& media() override { return mMedia; }
  std::filesystem::path clip() override {
    test::TestClip{.title = "Test clip"}.make(folder.path() / "clip.mkv");
    return folder.path() / "clip.mkv";
  }
  MediaTime tolerance() override { return milliseconds(30); }  // of a machine that has other work

  host::SystemHost mHost;
  const std::unique_ptr<audio::AudioService> mAudio =
      audio::serviceOver(std::make_unique<audio::BuiltinAudio>());
  GStreamerMedia mMedia;
};

using MediaKind = test::Kind<Setting>;

struct Recorder final : PlayerDelegate {
  void playerStatusDidChange(Player& /*player*/) override { ++reports; }
  void playerDidJump(Player& /*player*/, MediaTime time) override {
    ++reports;
    jumps.push_back(time);
  }
  void playerRateDidChange(Player& /*player*/) override { ++reports; }
  void playerHasFrame(Player& /*player*/) override { ++reports; }

  int reports = 0;
  std::vector<MediaTime> jumps;
};

class PlayerContract : public testing::TestWithParam<MediaKind> {
 protected:
  void open(const std::filesystem::path& path) {
    auto made = mSetting->media().initWithURL({path}, mDelegate);
    ASSERT_TRUE(made) << made.error().text;
    mPlayer = std::move(*made);
  }
  void openClip() {
    open(mSetting->clip());
    ASSERT_TRUE(until(5, [this] { return mPlayer->status() == PlayerStatus::readyToPlay; }));
  }
  static bool until(double most, const std::function<bool()>& condition) {
    return test::until(most, condition);
  }
  void pass(double duration) {
    const std::uint64_t end = now() + static_cast<std::uint64_t>(duration * 1e9);
    EXPECT_TRUE(until(duration + 5, [&] { return now() >= end; }));
  }
  static std::uint64_t now() { return host::current().AudioGetCurrentHostTime(); }

  // The timeline, between two looks at the host's time.
  void expectAt(float rate, MediaTime position, std::uint64_t hostTime) {
    const auto at = [&](std::uint64_t host) {
      return position + MediaTime(std::llround(
                            static_cast<double>(rate) *
                            static_cast<double>(static_cast<std::int64_t>(host - hostTime))));
    };
    const MediaTime before = at(now());
    const MediaTime current = mPlayer->currentTime();
    EXPECT_GE(current, before - milliseconds(1));
    EXPECT_LE(current, at(now()) + milliseconds(1));
  }
  // The last frame of those that come within the time; none when none comes.
  std::optional<MediaTime> frameWithin(double most) {
    std::optional<MediaTime> time;
    until(most, [&] {
      while (const auto frame = mPlayer->takeFrame()) {
        time = frame->time;
      }
      return false;
    });
    return time;
  }
  bool seek(MediaTime time) {
    std::optional<bool> finished;
    mPlayer->seekToTime(time, [&](bool done) { finished = done; });
    EXPECT_FALSE(finished);
    EXPECT_TRUE(until(5, [&] { return finished.has_value(); }));
    return finished.value_or(false);
  }

  const std::unique_ptr<Setting> mSetting = GetParam().make();
  Recorder mDelegate;
  std::unique_ptr<Player> mPlayer;
};

TEST_P(PlayerContract, AClipIsKnownOnceItIsReadyAndCommandsBeforeThatDoNothing) {
  open(mSetting->clip());
  EXPECT_EQ(mPlayer->status(), PlayerStatus::unknown);
  mPlayer->setRate(1, seconds(2), now());
  EXPECT_EQ(mPlayer->rate(), 0);
  EXPECT_FALSE(seek(seconds(1)));
  ASSERT_TRUE(until(5, [this] { return mPlayer->status() == PlayerStatus::readyToPlay; }));
  EXPECT_EQ(mPlayer->error(), "");
  EXPECT_NEAR(std::chrono::duration<double>(mPlayer->duration()).count(), 10, 0.05);
  EXPECT_EQ(mPlayer->title(), "Test clip");
  EXPECT_NEAR(mPlayer->nominalFrameRate(), 25, 1e-6);
  ASSERT_EQ(mPlayer->audioTrackCount(), 1U);
  EXPECT_EQ(mPlayer->audioChannelCount(0), 2U);
  EXPECT_EQ(mPlayer->rate(), 0);
  EXPECT_EQ(mPlayer->currentTime(), MediaTime{});
  EXPECT_EQ(mPlayer->volume(), 1);
  mPlayer->setVolume(3);
  EXPECT_EQ(mPlayer->volume(), 1);
  EXPECT_TRUE(mDelegate.jumps.empty());
}

TEST_P(PlayerContract, WhatIsNoFileIsRefusedAndWhatIsNoMediaFailsWithAReason) {
  const auto pipe = mSetting->folder.path() / "pipe.mp4";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const auto& path : {mSetting->folder.path() / "none.mp4", mSetting->folder.path(), pipe}) {
    const auto made = mSetting->media().initWithURL({path}, mDelegate);
    ASSERT_FALSE(made);
    EXPECT_NE(made.error().text.find(path.string()), std::string::npos) << made.error().text;
  }
  open(mSetting->noMedia());
  EXPECT_TRUE(until(5, [this] { return mPlayer->status() == PlayerStatus::failed; }));
  EXPECT_NE(mPlayer->error(), "");
  EXPECT_EQ(mDelegate.reports, 1);
}

TEST_P(PlayerContract, AStartInThePastIsWhereItWouldBeNowAndFramesFollowTheTimeline) {
  openClip();
  const std::uint64_t start = now() - 500'000'000;
  mPlayer->setRate(1, seconds(2), start);
  expectAt(1, seconds(2), start);
  pass(1.0);
  expectAt(1, seconds(2), start);
  const auto frame = frameWithin(0.2);
  ASSERT_TRUE(frame);
  EXPECT_LE(*frame, mPlayer->currentTime() + mSetting->tolerance());
  EXPECT_GE(*frame, mPlayer->currentTime() - milliseconds(40) - mSetting->tolerance());

  // Another rate from the same place on is no jump.
  mDelegate.jumps.clear();
  const std::uint64_t turn = now();
  const MediaTime position = mPlayer->currentTime();
  mPlayer->setRate(1.02F, position, turn);
  pass(0.5);
  expectAt(1.02F, position, turn);
  EXPECT_TRUE(mDelegate.jumps.empty());
  mPlayer->setRate(0);
  EXPECT_EQ(mPlayer->rate(), 0);
  const MediaTime paused = mPlayer->currentTime();
  pass(0.2);
  EXPECT_NEAR(static_cast<double>((mPlayer->currentTime() - paused).count()), 0, 40e6);
}

TEST_P(PlayerContract, BeforeItsStartAClipShowsTheFirstFrameAndAtItsEndItStops) {
  openClip();
  const std::uint64_t start = now();
  mPlayer->setRate(1, milliseconds(-80), start);
  EXPECT_LT(mPlayer->currentTime(), MediaTime{});
  EXPECT_EQ(frameWithin(0.06).value_or(MediaTime{}), MediaTime{});
  pass(0.3);
  expectAt(1, milliseconds(-80), start);

  for (int run = 0; run < 2; ++run) {  // it can be started again
    mPlayer->setRate(1, mPlayer->duration() - milliseconds(300), now());
    EXPECT_EQ(mPlayer->rate(), 1);
    EXPECT_TRUE(until(3, [this] { return mPlayer->rate() == 0; }));
    EXPECT_EQ(mPlayer->currentTime(), mPlayer->duration());
    pass(0.1);
  }
}

TEST_P(PlayerContract, SeeksAndStepsAreExactAndTheLastOneCounts) {
  openClip();
  std::vector<std::string> order;
  mPlayer->seekToTime(seconds(3), [&](bool done) { order.emplace_back(done ? "3" : "no 3"); });
  mPlayer->seekToTime(milliseconds(7040), [&](bool done) {
    order.emplace_back(done && mDelegate.jumps.size() == 1 ? "jump, 7.04" : "no 7.04");
  });
  EXPECT_TRUE(until(5, [&] { return order.size() == 2; }));
  EXPECT_EQ(order, (std::vector<std::string>{"no 3", "jump, 7.04"}));
  EXPECT_EQ(mPlayer->currentTime(), milliseconds(7040));
  EXPECT_EQ(frameWithin(0.1), milliseconds(7040));
  for (const auto& [frames, position] : {std::pair(1, 7080), std::pair(-2, 7000)}) {
    const std::size_t jumps = mDelegate.jumps.size();
    mPlayer->stepByCount(frames);
    EXPECT_TRUE(until(5, [&] { return mDelegate.jumps.size() == jumps + 1; }));
    EXPECT_EQ(frameWithin(0.1), milliseconds(position));
  }
  EXPECT_TRUE(seek(seconds(-1)));
  EXPECT_EQ(mPlayer->currentTime(), MediaTime{});
}

TEST_P(PlayerContract, APlayerThatHasEndedReportsNothing) {
  openClip();
  mPlayer->setRate(1, seconds(4), now());
  bool isCompleted = false;
  mPlayer->seekToTime(seconds(2), [&](bool /*finished*/) { isCompleted = true; });
  mPlayer = nullptr;
  mDelegate.reports = 0;
  pass(0.5);
  EXPECT_EQ(mDelegate.reports, 0);
  EXPECT_FALSE(isCompleted);
}

INSTANTIATE_TEST_SUITE_P(Players, PlayerContract,
                         testing::Values(MediaKind::of<SimulatedSetting>("Simulated"),
                                         MediaKind::of<GStreamerSetting>("GStreamer")),
                         test::kNameOfKind);

}  // namespace
}  // namespace velor::media
