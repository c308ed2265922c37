// SPDX-License-Identifier: MIT
// In real time, with clips that ffmpeg makes: frames are timed as they reach the main queue,
// clicks as they leave "Velor Loopback".
#include "platform/media/gstreamer/GStreamerPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/PlayerRig.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::media {
namespace {

using test::PlayerRig;
using test::TestClip;

MediaTime seconds(double value) {
  return MediaTime(std::llround(value * 1e9));
}
double inSeconds(MediaTime time) {
  return static_cast<double>(time.count()) * 1e-9;
}

// Clips that several tests share, made once.
const std::filesystem::path& folder() {
  static const test::TemporaryFolder kFolder;
  return kFolder.path();
}
std::filesystem::path clip(const std::string& name, const TestClip& what = {}) {
  const auto file = folder() / name;
  if (!std::filesystem::exists(file)) {
    what.make(file);
  }
  return file;
}

// What was told, kept apart from the player.
struct Told {
  double rate;
  double position;
  std::uint64_t hostTime;
  double at(std::uint64_t time) const {
    return position + rate * static_cast<double>(static_cast<std::int64_t>(time - hostTime)) * 1e-9;
  }
};

// With a clip that is ready to play.
struct Ready : PlayerRig {
  explicit Ready(const std::filesystem::path& file, bool wantsVideo = true) {
    EXPECT_EQ(openFully(file, wantsVideo), PlayerStatus::readyToPlay) << error;
  }
};

constexpr double kSettle = 0.35;  // seconds until a jump is over
constexpr double kSoundOff = 0.002;

class Following : public ::testing::TestWithParam<const char*> {};

TEST_P(Following, PutsFramesAndClicksWhereTheTimelineHasThem) {
  TestClip what;
  what.frameRate = GetParam();
  const double length = 1 / what.rate();
  Ready rig(clip("follow" + std::to_string(std::lround(1e3 / length)) + ".mkv", what));
  EXPECT_NEAR(rig.player->nominalFrameRate(), what.rate(), 1e-3);
  EXPECT_EQ(rig.player->audioChannelCount(0), 2U);
  EXPECT_EQ(rig.player->title(), "Clip of a test");

  struct Step {
    const char* what;
    double rate;
    double position;  // of the clip; NaN goes on from where it is
    double ago;       // seconds
    double runs;
  };
  constexpr double kHere = std::numeric_limits<double>::quiet_NaN();
  Told told{0, 0, 0};
  for (const Step& step : {Step{"start in mid-clip, in the past", 1, 2, 0.5, 1.2},
                           Step{"slower", 0.98, kHere, 0, 1.2}, Step{"faster", 1.02, kHere, 0, 1.2},
                           Step{"forwards", 1, 7.2, 0, 1.2}, Step{"backwards", 1, 0.6, 0, 1.2}}) {
    SCOPED_TRACE(step.what);
    const std::uint64_t now = rig.now();
    told = {step.rate, std::isnan(step.position) ? told.at(now) : step.position,
            now - static_cast<std::uint64_t>(step.ago * 1e9)};
    rig.player->setRate(static_cast<float>(told.rate), seconds(told.position), told.hostTime);
    EXPECT_NEAR(inSeconds(rig.player->currentTime()), told.at(rig.now()), 1e-3);
    rig.run(kSettle);
    rig.shown.clear();
    rig.ear->take();
    rig.run(step.runs - kSettle);
    EXPECT_GT(static_cast<double>(rig.shown.size()),
              (step.runs - kSettle) * told.rate / length * 0.8);
    std::size_t late = 0;
    for (const PlayerRig::Shown& frame : rig.shown) {
      const double off = frame.number * length - told.at(frame.host);
      EXPECT_LT(off, 0.002);
      late += off < -length ? 1 : 0;
    }
    // A machine with other work delivers some later.
    EXPECT_LE(late, rig.shown.size() / 5);
    for (const std::uint64_t click : rig.ear->take()) {
      EXPECT_NEAR(told.at(click), std::round(told.at(click)), kSoundOff);
    }
  }
  EXPECT_GT(rig.ear->peak(), 0.5);
}
INSTANTIATE_TEST_SUITE_P(Rates, Following, ::testing::Values("25", "24000/1001"));

TEST(GStreamerPlayer, ShowsExactlyTheFramesThatSeeksAndStepsAskForWhileItStands) {
  Ready rig(clip("ntsc.mp4", {.frameRate = "30000/1001", .audioCodec = "aac"}));
  const double length = 1001.0 / 30000;
  std::vector<bool> finished;
  // A wish that another replaces before it has begun.
  rig.player->seekToTime(seconds(1), [&](bool is) { finished.push_back(is); });
  for (const int frame : {90, 91, 5, 0, 299}) {
    rig.jumps.clear();
    // As timecode gives it: to a whole millisecond, up or down.
    const double position = std::floor(frame * length * 1000 + (frame % 2)) / 1000;
    bool isThere = false;
    rig.player->seekToTime(seconds(position), [&](bool is) {
      finished.push_back(is);
      isThere = true;
    });
    ASSERT_TRUE(rig.until(
        5, [&] { return isThere && !rig.shown.empty() && rig.shown.back().number == frame; }))
        << frame << ", not " << rig.shown.back().number;
    EXPECT_EQ(rig.jumps.size(), 1U);
  }
  EXPECT_EQ(finished, (std::vector<bool>{false, true, true, true, true, true}));
  rig.player->stepByCount(-10);
  EXPECT_TRUE(rig.until(5, [&] { return rig.shown.back().number == 289; }));
}

TEST(GStreamerPlayer, StopsAtTheEndWithAllItsSoundAndStartsAgain) {
  // Its last click is within the sound that is pulled early.
  Ready rig(clip("short.wav", {.seconds = 2.1, .frameRate = ""}));
  EXPECT_TRUE(std::isnan(rig.player->nominalFrameRate()));
  for (int turn = 0; turn < 2; ++turn) {
    const std::uint64_t now = rig.now();
    rig.player->setRate(1, seconds(1.5), now);
    EXPECT_EQ(rig.player->rate(), 1);
    EXPECT_TRUE(rig.until(3, [&] { return rig.player->rate() == 0; }));
    EXPECT_NEAR(static_cast<double>(rig.now() - now) * 1e-9, 0.6, 0.1);
    EXPECT_EQ(rig.player->currentTime(), rig.player->duration());
    const auto clicks = rig.ear->take();
    ASSERT_EQ(clicks.size(), 1U);
    EXPECT_NEAR(static_cast<double>(clicks[0] - now) * 1e-9, 0.5, kSoundOff);
  }
}

// The sum goes to the second channel, as a tap may ask for; the first is what the ear hears.
TEST(GStreamerPlayer, PlaysWhatTheTapHasMadeOfEachBlock) {
  class Silencer final : public AudioTap {
   public:
    void process(const host::RealtimeContext&, std::span<float* const> channels,
                 std::size_t framesAsked, std::size_t framesDelivered) noexcept override {
      isWhole = isWhole && framesAsked == framesDelivered && channels.size() == 6;
      std::fill_n(channels[0], framesDelivered, 0.0F);
    }
    std::atomic<bool> isWhole{true};
  };
  Ready rig(clip("six.mkv", {.seconds = 3, .frameRate = "", .channels = 6}));
  const auto tap = std::make_shared<Silencer>();
  rig.player->setAudioTap(0, tap);
  rig.player->setRate(1, seconds(0.9), rig.now());
  rig.run(0.5);
  EXPECT_LT(rig.ear->peak(), 1e-3);
  EXPECT_TRUE(tap->isWhole);
  rig.player->setAudioTap(0, nullptr);
  rig.player->setVolume(0.5F);
  rig.player->setRate(1, seconds(1.9), rig.now());
  rig.run(0.5);
  EXPECT_NEAR(rig.ear->peak(), 0.5 * 29000 / 32768, 0.06);
}

TEST(GStreamerPlayer, GivesTheReasonForWhatItCannotOpenAndNeverHangs) {
  const auto make = [](const std::string& name, const std::string& bytes) {
    const auto file = folder() / name;
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
  };
  const std::string whole = test::fileContents(clip("whole.mov", {.seconds = 2}));
  const std::string indexed = test::fileContents(
      clip("indexed.mov", {.seconds = 2, .audioCodec = "pcm_s16le -movflags +faststart"}));
  std::filesystem::create_directory(folder() / "folder");
  struct Case {
    std::filesystem::path file;
    const char* reason;
  };
  for (const Case& bad :
       {Case{folder() / "folder", "folder"}, Case{make("empty.mp4", ""), "empty"},
        Case{make("noise.mp4", std::string(50'000, '\xA7')), "determine type"},
        Case{make("cut.mov", whole.substr(0, whole.size() / 2)), "index is missing"},
        Case{make("indexOnly.mov", indexed.substr(0, indexed.find("mdat") + 100)),
             "before its first picture or sound"}}) {
    SCOPED_TRACE(bad.file.string());
    PlayerRig rig;
    const std::uint64_t began = rig.now();
    EXPECT_EQ(rig.openFully(bad.file), PlayerStatus::failed);
    EXPECT_NE(rig.error.find(bad.reason), std::string::npos) << rig.error;
    EXPECT_NE(rig.error.find(bad.file.string()), std::string::npos) << rig.error;
    // Not after a time limit.
    EXPECT_LT(static_cast<double>(rig.now() - began) * 1e-9, 8);
  }
}

TEST(GStreamerPlayer, ShowsUprightWhatAPhoneRecordedOnItsSide) {
  const auto file = folder() / "phone.mp4";
  test::Process ffmpeg({"ffmpeg", "-nostdin", "-v", "error", "-i",
                        clip("plain.mp4", {.seconds = 1, .channels = 0}).string(), "-c", "copy",
                        "-metadata:s:v", "rotate=90", file.string()},
                       {}, "/dev/null");
  ASSERT_EQ(ffmpeg.waitForEnd(60), 0);
  Ready rig(file);
  ASSERT_TRUE(rig.until(5, [&] { return !rig.shown.empty(); }));
  EXPECT_EQ(rig.shown.back().width, TestClip().height);
}

TEST(GStreamerPlayer, OpensOddNamesAndAllNumbersOfChannels) {
  const TestClip video{.seconds = 1, .channels = 0};
  for (const std::string name : {"a b@01:00:00:00 #%20?.mp4", "\xFF\xFE.mp4"}) {
    std::filesystem::copy_file(clip("plain.mp4", video), folder() / name);
    Ready rig(folder() / name);
    EXPECT_EQ(rig.player->audioTrackCount(), 0U);
  }
  {
    SCOPED_TRACE("nothing to see and nothing to hear, but a time");
    Ready rig(clip("plain.mp4", video), false);
    rig.player->setRate(1, seconds(0.5), rig.now());
    EXPECT_TRUE(rig.until(3, [&] { return rig.player->rate() == 0; }));
    EXPECT_TRUE(rig.shown.empty());
  }
  for (const int channels : {1, 3, 9, 32}) {
    SCOPED_TRACE(channels);
    Ready rig(clip("channels" + std::to_string(channels) + ".wav",
                   {.seconds = 1, .frameRate = "", .channels = channels}));
    EXPECT_EQ(rig.player->audioChannelCount(0), static_cast<std::size_t>(channels));
    rig.player->setRate(1, seconds(-0.1), rig.now());
    rig.run(0.3);
    EXPECT_GT(rig.ear->peak(), 0.5);
  }
}

TEST(GStreamerPlayer, LeavesNoThreadAndNoDescriptorAfterTwentyClips) {
  const auto count = [](const char* of) {
    return std::distance(std::filesystem::directory_iterator(of), {});
  };
  const auto file = clip("twenty.mp4", {.seconds = 1, .audioCodec = "aac"});
  PlayerRig rig;
  const auto open = [&] {
    ASSERT_EQ(rig.openFully(file), PlayerStatus::readyToPlay) << rig.error;
    rig.player->setRate(1, {}, rig.now());
    rig.run(0.1);
    rig.player.reset();
  };
  open();  // what the libraries keep for good
  const auto descriptors = count("/proc/self/fd");
  const auto threads = count("/proc/self/task");
  for (int i = 0; i < 20; ++i) {
    open();
  }
  // Idle threads of GLib's pools end by themselves.
  EXPECT_LE(count("/proc/self/fd"), descriptors);
  EXPECT_LE(count("/proc/self/task"), threads + 2);
}

}  // namespace
}  // namespace velor::media
