// SPDX-License-Identifier: MIT
// How many times faster than real time LTC is written to a sound file, on the disk and
// renamed, and read from it; with the memory that the process takes.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Velor/program/VLDecode.h"
#include "Velor/program/VLEncode.h"
#include "kvtimecode/ltc_utils.h"
#include "tests/support/TemporaryFolder.h"

namespace velor {
namespace {

constexpr double kGoal = 1000;
constexpr int kRounds = 5;

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

long peakKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void endAt(const Expected<>& result) {
  if (!result) {
    std::fprintf(stderr, "%s\n", result.error().text.c_str());
    std::exit(1);
  }
}

// Of the best round: what else the machine does makes it slower, never faster.
double timesRealTime(VLEncodeOptions options, double duration) {
  options.duration = duration;
  double best = 0;
  for (int round = 0; round < kRounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    endAt(VLEncodeFile(options, [](double) { return true; }));
    best = std::max(best, duration / secondsSince(start));
  }
  return best;
}

double timesRealTimeRead(const std::string& file, double duration, std::uint64_t frames) {
  double best = 0;
  for (int round = 0; round < kRounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    const auto reader = audio::SoundFileReader::open(file);
    endAt(reader.map([](const auto&) {}));
    const auto summary = VLDecodeFile(
        **reader, 1, false, [](const VLDecodedFrame&) {}, [](double) {});
    endAt(summary.error ? Expected<>(tl::unexpected(*summary.error)) : Expected<>());
    endAt(summary.frames == frames ? Expected<>() : failure("frames are missing"));
    best = std::max(best, duration / secondsSince(start));
  }
  return best;
}

}  // namespace
}  // namespace velor

int main() {
  const velor::test::TemporaryFolder folder;
  velor::VLEncodeOptions options;
  options.start = velor::ltc_smptetime_from_frame_number(0, velor::kSMPTETimeType25);
  options.level = 0.25F;
  std::printf("48 kHz, 25 frames a second, one channel, best of %d rounds\n", velor::kRounds);
  options.file = (folder.path() / "short.wav").string();
  velor::timesRealTime(options, 60);
  const long before = velor::peakKilobytes();
  options.file = (folder.path() / "a.wav").string();
  const double duration = 1800;
  const double goal = velor::timesRealTime(options, duration);
  std::printf("  encode, 16 bits, WAV  %6.0f times real time (goal: at least %.0f)\n", goal,
              velor::kGoal);
  std::printf("  memory                %6ld KiB more for 30 minutes than for one\n",
              velor::peakKilobytes() - before);
  const auto frames = static_cast<std::uint64_t>(duration * 25);
  std::printf("  decode, 16 bits, WAV  %6.0f times real time\n",
              velor::timesRealTimeRead(options.file, duration, frames));
  options.file = (folder.path() / "a.flac").string();
  std::printf("  encode, 16 bits, FLAC %6.0f times real time\n",
              velor::timesRealTime(options, 300));
  return goal >= velor::kGoal ? 0 : 1;
}
