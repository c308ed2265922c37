// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "Kv-Appkit/KVFourCC.h"

namespace velor {

/// A word whose bits speak for themselves: bit 0, time is moving; bit 1, armed;
/// bit 10, the MTC that comes in is of another format.
using VLClockStatus = std::uint64_t;
inline constexpr VLClockStatus VLClockStopped = 0;
inline constexpr VLClockStatus VLClockRolling = 1;  ///< on its own timer
inline constexpr VLClockStatus VLClockArmed = 2;    ///< waits for MTC
inline constexpr VLClockStatus VLClockChasing = 3;  ///< follows MTC
inline constexpr VLClockStatus VLClockArmedWrongFormat = 0x402;

inline constexpr VLClockStatus kVLClockMovingBit = 1U << 0;
inline constexpr VLClockStatus kVLClockArmedBit = 1U << 1;

// Play modes, four-character codes.
inline constexpr std::uint64_t VLPlayModeNormal = KVFourCC("norm");
inline constexpr std::uint64_t VLPlayModeStop = KVFourCC("stop");  ///< ends at the stop time
inline constexpr std::uint64_t VLPlayModeLoop = KVFourCC("loop");  ///< between the loop points
inline constexpr std::uint64_t VLPlayModeTimeOfDay =
    KVFourCC("t_od");  ///< starts at the wall clock

struct VLPlayModeTitle {
  std::uint64_t playMode;
  std::string_view title;
};

/// All play modes, in the order of menus.
inline constexpr std::array<VLPlayModeTitle, 4> kVLPlayModes{{
    {VLPlayModeNormal, "Normal"},
    {VLPlayModeStop, "Stop"},
    {VLPlayModeLoop, "Loop"},
    {VLPlayModeTimeOfDay, "Time of day"},
}};

/// Calibrated, each part 0 to 1.
struct VLColor {
  double red;
  double green;
  double blue;
  double alpha;
  bool operator==(const VLColor&) const = default;
};

}  // namespace velor
