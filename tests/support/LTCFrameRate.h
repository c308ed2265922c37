// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kvtimecode/SMPTETime.h"

namespace velor {

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
