// SPDX-License-Identifier: MIT
#include "Velor/program/VLOptions.h"

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLRefusal.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

// An offset may be negative: it wraps around the day, as the clock's sums do.
Expected<SMPTETime> offsetOption(const std::string& text, std::uint32_t format) {
  const bool isNegative = text.starts_with('-');
  auto offset = VLOptionText::time(text.substr(isNegative ? 1 : 0), format);
  if (offset && isNegative) {
    SMPTETime zero = ltc_smptetime_from_frame_number(0, format);
    ltc_subtract(zero, *offset);
    offset = zero;
  }
  return offset;
}

}  // namespace

Expected<VLMediaWords> VLMediaWordsFromText(const std::string& text) {
  const std::size_t at = text.rfind('@');
  VLMediaWords words{text.substr(0, at), std::nullopt};
  if (words.path.empty()) {
    return failure("'" + text + "' is not a CLIP@TIME");
  }
  if (at == std::string::npos) {
    return words;
  }
  words.start = text.substr(at + 1);
  return VLOptionText::checkTime(*words.start).map([&words] { return std::move(words); });
}

Expected<VLTimes> VLTimesFromWords(const VLTimeWords& words, std::uint32_t format) {
  VLTimes times;
  VLRefusal refusal;
  const auto time = [&](const char* option, const std::string& text) {
    return refusal.read(option, VLOptionText::time(text, format));
  };
  if (words.start) {
    times.start = time("--start", *words.start);
  }
  if (words.offset) {
    times.offset = refusal.read("--offset", offsetOption(*words.offset, format));
  }
  if (words.stopAt) {
    times.stopAt = time("--stop-at", *words.stopAt);
  }
  if (words.loop) {
    times.loop = {time("--loop", words.loop->first), time("--loop", words.loop->second)};
    refusal.refuseIf(ltc_compare(times.loop->first, times.loop->second) != -1,
                     "--loop: the end must come after the start");
  }
  return refusal.resultOf(times);
}

}  // namespace velor
