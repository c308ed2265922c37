// SPDX-License-Identifier: MIT
// How a clip of 720 rows at 25 frames a second follows its timeline: where frames reach the main
// queue and clicks leave "Velor Loopback", the times from a jump to the first frame that is in
// step again, and the processor's share beside a plain player of the same clip. Seconds to
// measure for: the first argument, 20 if there is none.
#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/PlayerRig.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::test {
namespace {

constexpr int kJumps = 20;
constexpr double kFrame = 1 / 25.0;

double processorTime(int whose) {
  rusage usage{};
  getrusage(whose, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Of values in seconds, by their amounts.
void print(const char* what, std::vector<double> values) {
  if (values.empty()) {
    std::printf("%-28s nothing measured\n", what);
    return;
  }
  std::sort(values.begin(), values.end(),
            [](double a, double b) { return std::fabs(a) < std::fabs(b); });
  const auto at = [&](double part) {
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))] * 1e3;
  };
  std::printf("%-28s median %8.3f ms, 99 %% %8.3f ms, worst %8.3f ms (%zu)\n", what, at(0.5),
              at(0.99), at(1), values.size());
}

struct Told {
  std::uint64_t hostTime;
  double position;
  double at(std::uint64_t time) const {
    return position + static_cast<double>(static_cast<std::int64_t>(time - hostTime)) * 1e-9;
  }
};

Told start(PlayerRig& rig, double position) {
  const Told told{rig.now(), position};
  rig.player->setRate(1, media::MediaTime(std::llround(position * 1e9)), told.hostTime);
  return told;
}

// The share of one processor.
double measureOffsets(PlayerRig& rig, double seconds) {
  const Told told = start(rig, 0);
  rig.run(0.5);
  rig.shown.clear();
  rig.ear->take();
  const double before = processorTime(RUSAGE_SELF);
  rig.run(seconds);
  const double share = (processorTime(RUSAGE_SELF) - before) / seconds;
  std::vector<double> frames;
  for (const PlayerRig::Shown& frame : rig.shown) {
    frames.push_back(frame.number * kFrame - told.at(frame.host));
  }
  std::vector<double> clicks;
  for (const std::uint64_t click : rig.ear->take()) {
    clicks.push_back(std::round(told.at(click)) - told.at(click));
  }
  print("frame after its time", frames);
  print("click beside its time", clicks);
  std::printf("%-28s %llu\n", "frames dropped",
              static_cast<unsigned long long>(rig.player->droppedFrames()));
  return share;
}

void measureJumps(PlayerRig& rig, double seconds) {
  std::vector<double> times;
  for (int i = 0; i < kJumps; ++i) {
    const Told told = start(rig, std::fmod(i * 7.31, seconds - 2));
    rig.shown.clear();
    const bool isBack = rig.until(5, [&] {
      return !rig.shown.empty() &&
             std::fabs(rig.shown.back().number * kFrame - told.at(rig.shown.back().host)) < kFrame;
    });
    if (isBack) {
      times.push_back(static_cast<double>(rig.shown.back().host - told.hostTime) * 1e-9);
    }
    rig.run(0.3);
  }
  print("in step after a jump", times);
}

int run(double seconds) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "clip.mp4";
  TestClip{.seconds = seconds + 1, .width = 1280, .height = 720, .audioCodec = "aac"}.make(file);
  PlayerRig rig;
  if (rig.openFully(file) != media::PlayerStatus::readyToPlay) {
    std::fprintf(stderr, "%s\n", rig.error.c_str());
    return 1;
  }
  const double share = measureOffsets(rig, seconds);
  measureJumps(rig, seconds);
  rig.player.reset();

  const double before = processorTime(RUSAGE_CHILDREN);
  Process plain({"gst-launch-1.0", "-q", "playbin", "uri=file://" + file.string(),
                 "video-sink=videoconvert ! video/x-raw,format=BGRx ! fakesink sync=true",
                 "audio-sink=fakesink sync=true"},
                {}, "/dev/null");
  plain.waitForEnd(seconds + 20);
  const double plainShare = (processorTime(RUSAGE_CHILDREN) - before) / (seconds + 1);
  std::printf("%-28s %.1f %% of a processor; a plain player %.1f %%\n", "while it plays",
              share * 100, plainShare * 100);
  return 0;
}

}  // namespace
}  // namespace velor::test

int main(int argc, char** argv) {
  return velor::test::run(argc > 1 ? std::atof(argv[1]) : 20);
}
