// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/host/Host.h"

namespace velor {

/// Truncated. What no clock can wait for, not-a-number included, becomes 0 or 292
/// years, so that adding it to the host time never wraps.
constexpr std::uint64_t KVNanosecondsFromSeconds(double seconds) noexcept {
  constexpr double kLimit = 0x1p63;
  const double ns = seconds * host::kNsPerSecond;
  if (!(ns > 0)) {
    return 0;
  }
  return static_cast<std::uint64_t>(ns < kLimit ? ns : kLimit);
}

}  // namespace velor
