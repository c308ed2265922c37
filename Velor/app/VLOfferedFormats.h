// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The formats that a user can choose, in the order of the menus. 23.98 is for decoding alone.
constexpr std::array<std::uint32_t, 6> VLOfferedFormats() {
  return {kSMPTETimeType24,       kSMPTETimeType25, kSMPTETimeType2997,
          kSMPTETimeType2997Drop, kSMPTETimeType30, kSMPTETimeType30Drop};
}

}  // namespace velor
