// SPDX-License-Identifier: MIT
#include "tests/support/TestClip.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"

// Read by AddressSanitizer. GLib replaces a table that it makes while it is loaded and never frees
// the first one; only a whole stack tells that from leaks of what GStreamer makes for us.
extern "C" const char* __asan_default_options();
extern "C" const char* __lsan_default_suppressions();
const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}
const char* __lsan_default_suppressions() {
  return "leak:_dl_init\n";
}

namespace velor::test {
namespace {

constexpr int kBits = 16;
constexpr int kAudioRate = 48000;
// Samples of a click.
constexpr std::int64_t kClick = 48;

void add(std::vector<std::string>& command, const std::string& words) {
  std::istringstream stream(words);
  for (std::string word; stream >> word;) {
    command.push_back(word);
  }
}

// One row, which ffmpeg stretches over the height.
std::string rowOf(int number, int width) {
  std::string row(static_cast<std::size_t>(width), '\0');
  for (int x = 0; x < width; ++x) {
    const int bit = kBits - 1 - x * kBits / width;
    row[static_cast<std::size_t>(x)] = ((number >> bit) & 1) != 0 ? '\xEB' : '\x10';
  }
  return row;
}

}  // namespace

double TestClip::rate() const {
  const auto slash = frameRate.find('/');
  return std::stod(frameRate) /
         (slash == std::string::npos ? 1 : std::stod(frameRate.substr(slash + 1)));
}

void TestClip::make(const std::filesystem::path& file) const {
  const TemporaryFolder folder;
  std::vector<std::string> command{"ffmpeg", "-nostdin", "-v", "error", "-y"};
  if (!frameRate.empty()) {
    const auto raw = folder.path() / "video";
    std::ofstream out(raw, std::ios::binary);
    for (int i = 0; i < static_cast<int>(std::lround(seconds * rate())); ++i) {
      const std::string row = rowOf(i, width);
      out << row << row;
    }
    add(command, "-f rawvideo -pix_fmt gray -s " + std::to_string(width) + "x2 -r " + frameRate +
                     " -i " + raw.string());
  }
  if (channels > 0) {
    const auto raw = folder.path() / "audio";
    std::ofstream out(raw, std::ios::binary);
    std::vector<std::int16_t> frame(static_cast<std::size_t>(channels));
    for (std::int64_t i = 0; i < std::llround(seconds * kAudioRate); ++i) {
      std::fill(frame.begin(), frame.end(), i % kAudioRate < kClick ? std::int16_t{29000} : 0);
      out.write(reinterpret_cast<const char*>(frame.data()),
                static_cast<std::streamsize>(frame.size() * sizeof frame[0]));
    }
    add(command, "-f s16le -ar " + std::to_string(kAudioRate) + " -ac " + std::to_string(channels) +
                     " -i " + raw.string());
  }
  if (!frameRate.empty()) {
    add(command, "-vf scale=" + std::to_string(width) + ":" + std::to_string(height) +
                     ":flags=neighbor -pix_fmt yuv420p -c:v libx264 -preset ultrafast -g 25");
  }
  if (channels > 0) {
    add(command, "-c:a " + audioCodec);
  }
  command.push_back("-metadata");
  command.push_back("title=" + title);
  command.push_back("file:" + file.string());
  const auto log = (folder.path() / "log").string();
  Process process(command, {}, log);
  if (process.waitForEnd(60) != 0) {
    throw std::runtime_error("ffmpeg: " + fileContents(log));
  }
}

int TestClip::numberOf(const media::VideoFrame& frame) {
  if (frame.width < kBits || frame.height < 1) {
    return -1;
  }
  int number = 0;
  const std::uint8_t* row =
      frame.data + static_cast<std::size_t>(frame.height / 2) * frame.bytesPerRow;
  for (int bit = 0; bit < kBits; ++bit) {
    const auto x = static_cast<std::size_t>((bit * 2 + 1) * frame.width / (2 * kBits));
    number = number * 2 + (row[x * 4] > 128 ? 1 : 0);
  }
  return number;
}

}  // namespace velor::test
