// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace velor {

/// The straight line through reports of timecode, each of which may come early or late: where
/// timecode is, and how fast it runs. It is the best fit to all reports at first, and then to
/// those of the last seconds. A single report that is far off says nothing, such as a number of
/// a drop format that is sent twice; several in a row move the line there.
class VLTimecodeLine {
 public:
  struct Place {
    double position = 0;         ///< seconds
    double rate = 1;             ///< seconds of timecode in a second
    std::uint64_t hostTime = 0;  ///< ns

    /// The position at a host time, by the rate.
    double at(std::uint64_t time) const noexcept {
      return position +
             rate * static_cast<double>(static_cast<std::int64_t>(time - hostTime)) * 1e-9;
    }
  };

  /// Begins with a place that some reports gave.
  void begin(const Place& place) noexcept;
  /// The next report; what the line says of its time.
  const Place& add(double position, std::uint64_t hostTime) noexcept;
  double at(std::uint64_t hostTime) const noexcept { return mPlace.at(hostTime); }

 private:
  Place mPlace;
  double mReports = 0;
  int mFarOff = 0;  // reports in a row
};

}  // namespace velor
