// SPDX-License-Identifier: MIT
#include "kvtimecode/SMPTEString.h"

#include <array>

#include "kvtimecode/SMPTEPattern.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

std::string stringFromSMPTETime(const SMPTETime& time) {
  std::array<char, kLTCStringSize> buffer;
  ltc_format_string(time, buffer.data());
  return buffer.data();
}

std::string encodeableStringFromSMPTETime(const SMPTETime& time) {
  return '[' + stringFromSMPTETime(time) + "][" +
         std::to_string(static_cast<std::int32_t>(time.mType)) + ']';
}

std::string stringFromSMPTEFormat(std::uint32_t format) {
  switch (format) {
    case kSMPTETimeType24:
      return "24";
    case kSMPTETimeType25:
      return "25";
    case kSMPTETimeType30Drop:
      return "30 Drop";
    case kSMPTETimeType30:
      return "30";
    case kSMPTETimeType2997:
      return "29.97";
    case kSMPTETimeType2997Drop:
      return "29.97 Drop";
    case kSMPTETimeType2398:
      return "23.98";
    default:
      return "unknown format " + std::to_string(format);
  }
}

const std::string& invalidSMPTEString() {
  static const std::string string = stringFromSMPTETime(SMPTETime{});
  return string;
}

bool parseSmpteTime(std::string_view string, SMPTETime& time, std::uint32_t format) {
  const auto digits = matchSMPTEPattern(string, ltc_type_is_drop(format) ? ';' : ':');
  if (!digits) {
    return false;
  }
  const auto [hours, minutes, seconds, frames] = *digits;
  time = {.mSubframeDivisor = kSMPTETimeSubframeDivisor,
          .mType = format,
          .mFlags = kSMPTETimeValid,
          .mHours = static_cast<std::int16_t>(hours),
          .mMinutes = static_cast<std::int16_t>(minutes),
          .mSeconds = static_cast<std::int16_t>(seconds),
          .mFrames = static_cast<std::int16_t>(frames)};
  return true;
}

bool parseEncodedSmpteTime(std::string_view string, SMPTETime& time) {
  constexpr std::string_view kBetweenBrackets = "0123456789:;.";
  for (std::size_t open = string.find('['); open != std::string_view::npos;
       open = string.find('[', open + 1)) {
    // "][d]" is what has to follow.
    const std::size_t close = string.find_first_not_of(kBetweenBrackets, open + 1);
    if (close == std::string_view::npos) {
      return false;
    }
    const std::string_view rest = string.substr(close, 4);
    if (rest.size() == 4 && rest[0] == ']' && rest[1] == '[' && rest[2] >= '0' && rest[2] <= '9' &&
        rest[3] == ']') {
      return parseSmpteTime(string.substr(open + 1, close - open - 1), time,
                            static_cast<std::uint32_t>(rest[2] - '0'));
    }
  }
  return false;
}

}  // namespace velor
