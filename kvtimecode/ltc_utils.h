// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvtimecode/SMPTETime.h"

// Arithmetic on SMPTETime. A time is a count of frames in one of seven formats;
// hours, minutes, seconds and frames are a view of that count, and every change
// ends by forcing the view back into a day of 24 hours and onto a label that the
// format has.
//
// Stateless: any thread, on records of its own. Realtime-safe: yes; nothing here
// allocates, locks or logs, but for an assertion, which ends the process.
//
// Integers are 32 bits, signed, and wrap; divisions truncate toward zero.
namespace velor {

// Statuses; 0 is success.
inline constexpr std::int32_t kLTCInvalidOperand = -40001;
inline constexpr std::int32_t kLTCFormatsDiffer = -40002;
inline constexpr std::int32_t kLTCInvalidFormat = -40003;
inline constexpr std::int32_t kLTCFormatNotDetected = -1;

/// The frame number of an invalid record.
inline constexpr std::int32_t kLTCNoFrameNumber = INT32_MIN;

/// Bytes that ltc_format_string writes, the ending zero included.
inline constexpr std::size_t kLTCStringSize = 12;

// Formats.

bool ltc_is_valid_type(std::uint32_t type) noexcept;

/// Real seconds of one frame; NaN for an invalid format.
double ltc_seconds_per_frame(std::uint32_t type) noexcept;

/// Frame labels in a second, 24, 25 or 30; 0 for an invalid format.
std::int32_t ltc_frames_per_second(std::uint32_t type) noexcept;

bool ltc_type_is_drop(std::uint32_t type) noexcept;

/// True from 23.0 to 31.0, both included.
bool ltc_is_valid_frame_rate(double framesPerSecond) noexcept;

// Questions to a record.

bool ltc_is_valid(const SMPTETime& t) noexcept;
bool ltc_is_drop(const SMPTETime& t) noexcept;

/// True for a label that the record's format skips, such as 00:01:00;00.
bool ltc_is_dropped_time(const SMPTETime& t) noexcept;

// Setting and counting.

/// Brings the fields, which may hold any value, into the day, by the numbering
/// of the labels: carries and borrows count dropped labels like others, and a
/// result that is a dropped label becomes ;02. Marks the record valid. For an invalid
/// format it only clears the flags and returns kLTCInvalidFormat.
std::int32_t ltc_normalize(SMPTETime& t) noexcept;

/// Stores the fields, each cut to 16 bits, and normalises. The format stays.
std::int32_t ltc_set_time(SMPTETime& t, std::int32_t hours, std::int32_t minutes,
                          std::int32_t seconds, std::int32_t frames) noexcept;

/// Copies the digits into the target, which keeps its format, flags and counter,
/// and normalises them there. kLTCInvalidOperand, and an untouched target, when
/// the source is invalid.
std::int32_t ltc_assign_time(const SMPTETime& source, SMPTETime& target) noexcept;

/// Adds to the frames field, in 16 bits, and normalises; 0 always. Dropped labels
/// count: two frames on from 00:00:59;29 is 00:01:00;02, and so is one.
std::int32_t ltc_add_frames(SMPTETime& t, std::uint32_t count) noexcept;

// Frame numbers, which count real frames from 00:00:00:00.

/// A dropped label has the number of the last frame before it. kLTCNoFrameNumber
/// for an invalid record.
std::int32_t ltc_frame_number_from_smptetime(const SMPTETime& t) noexcept;

/// A valid record, with the counter 0. Numbers beyond the day wrap around it;
/// negative ones of a drop format go back from midnight by whole blocks of ten
/// minutes, and inside a block by the numbering of the labels. Asserts the format.
SMPTETime ltc_smptetime_from_frame_number(std::int32_t n, std::uint32_t type) noexcept;

/// kLTCInvalidOperand unless both are valid, kLTCFormatsDiffer unless they are of
/// one format, and then the first is untouched. Else its digits become the sum's
/// or the difference's; a negative difference wraps over midnight. The other fields
/// of the first record stay. Asserts the format.
std::int32_t ltc_add(SMPTETime& a, const SMPTETime& b) noexcept;
std::int32_t ltc_subtract(SMPTETime& a, const SMPTETime& b) noexcept;

// Real time. Seconds are turned into a frame number by truncation, never by
// rounding, so that there and back can lose a frame: frame 29 at 25 frames per
// second is 1.16 s, and 1.16 / 0.04 is below 29.

double ltc_seconds_from_smpte_time(const SMPTETime& t) noexcept;

/// Replaces the whole record. Seconds beyond the reach of a frame number give the
/// lowest or the highest one, NaN gives 0. Asserts the format.
void ltc_smpte_time_from_seconds(std::uint32_t inFormat, SMPTETime& out, double seconds) noexcept;

/// Seconds may be negative. 0 always. The record is rebuilt: its counter becomes
/// 0, and of its flags the valid bit alone is left. Asserts the format.
std::int32_t ltc_add_seconds(SMPTETime& t, double seconds) noexcept;

/// Keeps the real time, not the digits. A record of no format becomes 00:00:00:00.
/// Asserts the new format.
void ltc_change_format(SMPTETime& t, std::uint32_t newFormat) noexcept;

// Comparing. None of these looks at the counter or at the running flag.

bool ltc_same_time(const SMPTETime& t1, const SMPTETime& t2) noexcept;

/// As ltc_same_time, and with the same place inside the frame.
bool ltc_identical(const SMPTETime& t1, const SMPTETime& t2) noexcept;

/// True when both are valid and of one format; ltc_compare asserts that.
bool ltc_cancompare(const SMPTETime& t1, const SMPTETime& t2) noexcept;

/// -1, 0 or 1: the first is earlier, the same, later.
std::int32_t ltc_compare(const SMPTETime& t1, const SMPTETime& t2) noexcept;

// For decoders of LTC.

/// Sets the format whose rate is nearest to the measured one, among those of the
/// drop bit (`drop`, not 0 for set) that can hold the record's frame digits, and
/// marks the record valid; the digits stay as they are. kLTCFormatNotDetected for
/// frame digits that no format has, with the record untouched, and for a rate that
/// is near to nothing (NaN, infinite), with the flags cleared.
std::int32_t ltc_detect_frame_format(SMPTETime& t, std::uint8_t drop, double fps) noexcept;

/// Not to be called: always ends the process. Detection is ltc_detect_frame_format.
[[noreturn]] void ltc_set_frame_format(SMPTETime& t, std::uint32_t type) noexcept;

// Text.

/// "01:02:03:04", with ';' before the frames of a drop format, or "--:--:--:--"
/// for an invalid record. `buffer` holds at least kLTCStringSize bytes. A field
/// outside 0 to 99, which no normalised record has, is printed as "%02u" prints
/// it, and the whole text is then cut to 11 characters.
void ltc_format_string(const SMPTETime& t, char* buffer) noexcept;

}  // namespace velor
