// SPDX-License-Identifier: MIT
#include "Velor/program/VLOptions.h"

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLUsageError.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

SMPTETime timeOption(const char* option, const std::string& text, std::uint32_t format) {
  return VLReadOption(option, [&] { return VLOptionText::time(text, format); });
}

// An offset may be negative: it wraps around the day, as the clock's sums do.
SMPTETime offsetOption(const std::string& text, std::uint32_t format) {
  const bool isNegative = text.starts_with('-');
  SMPTETime offset = timeOption("--offset", text.substr(isNegative ? 1 : 0), format);
  if (isNegative) {
    SMPTETime zero = ltc_smptetime_from_frame_number(0, format);
    ltc_subtract(zero, offset);
    offset = zero;
  }
  return offset;
}

}  // namespace

VLTimes VLTimesFromWords(const VLTimeWords& words, std::uint32_t format) {
  VLTimes times;
  if (words.start) {
    times.start = timeOption("--start", *words.start, format);
  }
  if (words.offset) {
    times.offset = offsetOption(*words.offset, format);
  }
  if (words.stopAt) {
    times.stopAt = timeOption("--stop-at", *words.stopAt, format);
  }
  if (words.loop) {
    times.loop = {timeOption("--loop", words.loop->first, format),
                  timeOption("--loop", words.loop->second, format)};
    VLRefuseIf(ltc_compare(times.loop->first, times.loop->second) != -1,
               "--loop: the end must come after the start");
  }
  return times;
}

}  // namespace velor
