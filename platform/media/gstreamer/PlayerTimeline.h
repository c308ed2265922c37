// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

namespace velor::media {

/// What a player was told: from the host time on at the rate, as if it had been at the
/// position at that moment.
struct PlayerTimeline {
  double rate = 0;
  std::int64_t position = 0;   ///< ns of the clip
  std::uint64_t hostTime = 0;  ///< ns

  /// The clip's position at a host time, ns. Realtime-safe: yes.
  std::int64_t at(std::uint64_t now) const noexcept {
    return position +
           std::llround(rate * static_cast<double>(static_cast<std::int64_t>(now - hostTime)));
  }
};

}  // namespace velor::media
