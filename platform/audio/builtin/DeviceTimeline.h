// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

namespace velor::audio {

/// A device's count of samples as a straight line over host time, to a tenth of a
/// microsample in years of running.
struct DeviceTimeline {
  static constexpr double kNsPerSecond = 1e9;

  std::uint64_t hostTime = 0;  ///< ns, at which the count was `sample`
  double sample = 0;
  double rate = 0;  ///< samples a second that really go by

  double sampleAt(std::uint64_t host) const noexcept {
    const auto elapsed = static_cast<std::int64_t>(host - hostTime);
    return sample + static_cast<double>(elapsed) * rate / kNsPerSecond;
  }
  /// Rounded to the nanosecond.
  std::uint64_t hostAt(double wanted) const noexcept {
    const auto elapsed = std::llround((wanted - sample) * kNsPerSecond / rate);
    return hostTime + static_cast<std::uint64_t>(elapsed);
  }
};

}  // namespace velor::audio
