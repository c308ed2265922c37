// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTEFormatter.h"

#include <array>
#include <cstdio>

#include "kvtimecode/SMPTEPattern.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

std::string KVSMPTEFormatter::stringForObjectValue(const KVSMPTETime* value) {
  if (value == nullptr) {
    return "00:00:00.00";
  }
  setFormat(value->type());
  std::array<char, 64> text;  // four numbers of up to 11 characters, three dividers
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d%s%02d", value->hours(), value->minutes(),
                value->seconds(), frameDividerForFormat(_format).c_str(), value->frames());
  return text.data();
}

bool KVSMPTEFormatter::getObjectValue(std::shared_ptr<KVSMPTETime>& object, std::string_view string,
                                      std::string* /*errorDescription*/) const {
  const auto digits = matchSMPTEPattern(string, frameDividerForFormat(_format).front());
  if (!digits) {
    return false;
  }
  const auto [hours, minutes, seconds, frames] = *digits;
  auto time = std::make_shared<KVSMPTETime>();
  time->setType(_format);
  time->setHours(hours);
  time->setMinutes(minutes);
  time->setSeconds(seconds);
  time->setFrames(frames);
  object = std::move(time);
  return true;
}

std::string KVSMPTEFormatter::regexPatternForFormat(std::uint32_t format) {
  return R"((\d+):(\d+):(\d+))" + frameDividerForFormat(format) + R"((\d+))";
}

std::string KVSMPTEFormatter::frameDividerForFormat(std::uint32_t format) {
  return ltc_type_is_drop(format) ? ";" : ".";
}

}  // namespace velor
