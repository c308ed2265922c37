// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace velor {

// Format codes, the values of SMPTETime::mType. 6 to 10 are not formats.
//
// Frames per second of the numbering, then of real time. "Drop" formats skip
// the labels ;00 and ;01 at each minute but every tenth (SMPTE ST 12-1).
inline constexpr std::uint32_t kSMPTETimeType24 = 0;        // 24, 24
inline constexpr std::uint32_t kSMPTETimeType25 = 1;        // 25, 25
inline constexpr std::uint32_t kSMPTETimeType30Drop = 2;    // 30, 30: ahead of the wall clock
inline constexpr std::uint32_t kSMPTETimeType30 = 3;        // 30, 30
inline constexpr std::uint32_t kSMPTETimeType2997 = 4;      // 30, 29.97
inline constexpr std::uint32_t kSMPTETimeType2997Drop = 5;  // 30, 29.97
inline constexpr std::uint32_t kSMPTETimeType2398 = 11;     // 24, 24 / 1.001

// Bits of SMPTETime::mFlags.
inline constexpr std::uint32_t kSMPTETimeValid = 1U << 0;    // the record holds a time
inline constexpr std::uint32_t kSMPTETimeRunning = 1U << 1;  // it comes from a running source

/// Subframes per frame: the bits of one LTC frame (SMPTE ST 12-1).
inline constexpr std::int16_t kSMPTETimeSubframeDivisor = 80;

/// A point in timecode. It is archived as its 24 bytes, little-endian, so the
/// order and the width of the fields are a file format. All zeros is the invalid
/// time. Change the fields through the operations of ltc_utils.h, or call
/// ltc_normalize afterwards: it alone brings them into the ranges given here.
struct SMPTETime {
  std::int16_t mSubframes = 0;        ///< place inside the frame; normalising sets 0
  std::int16_t mSubframeDivisor = 0;  ///< subframes per frame; normalising sets 80
  std::uint32_t mCounter = 0;         ///< frames received so far, for who counts them
  std::uint32_t mType = 0;            ///< a format code
  std::uint32_t mFlags = 0;           ///< kSMPTETimeValid, kSMPTETimeRunning
  std::int16_t mHours = 0;            ///< 0 to 23
  std::int16_t mMinutes = 0;          ///< 0 to 59
  std::int16_t mSeconds = 0;          ///< 0 to 59
  std::int16_t mFrames = 0;           ///< 0 to the format's frames per second less 1
};

static_assert(sizeof(SMPTETime) == 24);
static_assert(std::is_trivially_copyable_v<SMPTETime> && std::is_standard_layout_v<SMPTETime>);
static_assert(std::has_unique_object_representations_v<SMPTETime>, "no padding");
static_assert(offsetof(SMPTETime, mSubframes) == 0);
static_assert(offsetof(SMPTETime, mSubframeDivisor) == 2);
static_assert(offsetof(SMPTETime, mCounter) == 4);
static_assert(offsetof(SMPTETime, mType) == 8);
static_assert(offsetof(SMPTETime, mFlags) == 12);
static_assert(offsetof(SMPTETime, mHours) == 16);
static_assert(offsetof(SMPTETime, mMinutes) == 18);
static_assert(offsetof(SMPTETime, mSeconds) == 20);
static_assert(offsetof(SMPTETime, mFrames) == 22);

}  // namespace velor
