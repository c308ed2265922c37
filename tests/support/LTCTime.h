// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstring>

#include "kvtimecode/SMPTETime.h"

namespace velor {

/// A valid time of these fields, not normalised.
inline SMPTETime timeOf(std::uint32_t type, int hours, int minutes, int seconds, int frames) {
  return {.mType = type,
          .mFlags = kSMPTETimeValid,
          .mHours = static_cast<std::int16_t>(hours),
          .mMinutes = static_cast<std::int16_t>(minutes),
          .mSeconds = static_cast<std::int16_t>(seconds),
          .mFrames = static_cast<std::int16_t>(frames)};
}

inline bool sameBytes(const SMPTETime& a, const SMPTETime& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

/// Frames per second of a format, in real time.
inline double frameRateOf(std::uint32_t type) {
  switch (type) {
    case kSMPTETimeType24:
      return 24;
    case kSMPTETimeType25:
      return 25;
    case kSMPTETimeType2398:
      return 24000 / 1001.0;
    case kSMPTETimeType2997:
    case kSMPTETimeType2997Drop:
      return 30000 / 1001.0;
    default:
      return 30;
  }
}

}  // namespace velor
