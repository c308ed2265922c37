// SPDX-License-Identifier: MIT
// Any text as a clip of the command line: what is taken is all of the text, and its time is
// one of the format as its digits say, or is refused.
//
// The input is a byte for the format, and the text.
#include <array>
#include <string>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLOptions.h"
#include "kvtimecode/ltc_utils.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

using namespace velor;

struct Format {
  std::uint32_t type;
  int frames;
  bool drops;
};

constexpr std::array<Format, 4> kFormats = {{{kSMPTETimeType24, 24, false},
                                             {kSMPTETimeType25, 25, false},
                                             {kSMPTETimeType2997Drop, 30, true},
                                             {kSMPTETimeType30, 30, false}}};

// The four numbers between the separators; -1 for one that is empty or too long.
std::array<int, 4> numbersOf(const std::string& text) {
  std::array<int, 4> numbers{-1, -1, -1, -1};
  std::size_t place = 0;
  for (const char each : text) {
    if (each < '0' || each > '9') {
      ++place;
    } else if (place < numbers.size()) {
      numbers[place] = (numbers[place] < 0 ? 0 : numbers[place]) * 10 + (each - '0');
    }
  }
  return numbers;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const Format& format = kFormats[data[0] % kFormats.size()];
  const std::string text(data + 1, data + size);
  const auto words = VLMediaWordsFromText(text);
  if (!words) {
    require(words.error().text.find('\'') != std::string::npos, "an error shows the text");
    return 0;
  }
  require(!words->path.empty(), "a clip has a path");
  require(words->path + (words->start ? "@" + *words->start : "") == text, "nothing is left out");
  if (!words->start) {
    return 0;
  }
  const auto [hours, minutes, seconds, frames] = numbersOf(*words->start);
  const bool isDropped = format.drops && seconds == 0 && frames < 2 && minutes % 10 != 0;
  const bool exists =
      hours < 24 && minutes < 60 && seconds < 60 && frames < format.frames && !isDropped;
  const auto time = VLOptionText::time(*words->start, format.type);
  require(time.has_value() == exists, ("a time of the format: " + text).c_str());
  require(!time || (time->mHours == hours && time->mMinutes == minutes &&
                    time->mSeconds == seconds && time->mFrames == frames),
          ("as its digits say: " + text).c_str());
  return 0;
}
