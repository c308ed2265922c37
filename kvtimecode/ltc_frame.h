// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kvtimecode/SMPTETime.h"

// The frame of longitudinal timecode (SMPTE ST 12-1): a time and four bytes of user
// bits as 80 bits, those bits as a biphase mark signal, and bits that were read from
// a signal as a time again.
//
// Nothing here allocates but `create`. Each operation holds the frame's lock while it
// runs, so that another thread can look at the bits (`copy_bits`); what writes is one
// thread. Any thread. Realtime-safe: as far as that lock is free, so for a frame that
// one thread uses; not `create` and `destroy`.
namespace velor {

/// Bits of a frame.
inline constexpr std::size_t kLTCFrameBits = 80;

/// Bytes of user bits in a frame. Each is two groups of four bits, the low one first.
inline constexpr std::size_t kLTCUserBytes = 4;

/// The last 16 bits of a frame, the first of them on top. Read backwards it is
/// another word, which shows the direction of a signal.
inline constexpr std::uint16_t kLTCSyncWord = 0x3FFD;
inline constexpr std::size_t kLTCSyncBits = 16;

/// A number in the frame: its lowest bit comes first.
struct LTCField {
  std::uint8_t first;
  std::uint8_t width;
};

// Units and tens of each number of the time.
inline constexpr LTCField kLTCFrameUnits{0, 4};
inline constexpr LTCField kLTCFrameTens{8, 2};
inline constexpr LTCField kLTCSecondUnits{16, 4};
inline constexpr LTCField kLTCSecondTens{24, 3};
inline constexpr LTCField kLTCMinuteUnits{32, 4};
inline constexpr LTCField kLTCMinuteTens{40, 3};
inline constexpr LTCField kLTCHourUnits{48, 4};
inline constexpr LTCField kLTCHourTens{56, 2};

/// The eight groups of user bits, two a byte.
inline constexpr std::array<LTCField, 2 * kLTCUserBytes> kLTCUserGroups = {
    {{4, 4}, {12, 4}, {20, 4}, {28, 4}, {36, 4}, {44, 4}, {52, 4}, {60, 4}}};

inline constexpr LTCField kLTCDropFlag{10, 1};

/// Makes the number of ones in the frame even, so that each frame begins at the level
/// at which the one before it began. Here in every format, where ST 12-1 puts it at
/// bit 59 for 25 frames per second. The other flags (11, 43, 58, 59) are 0.
inline constexpr LTCField kLTCParity{27, 1};

/// The bits of one frame, and what is needed to find frames in a row of bits. An
/// opaque record of this module, from `ltc_frame_create` to `ltc_frame_destroy`.
struct ltc_frame;

/// All bits 0, and looking for a sync word. Null when there is no memory.
ltc_frame* ltc_frame_create() noexcept;

/// Null does nothing.
void ltc_frame_destroy(ltc_frame* frame) noexcept;

/// Sets all bits. The time is a normalised one; of other digits the bits that fit are
/// taken. `userBytes` points to kLTCUserBytes bytes; null stands for zeros.
void ltc_frame_encode(ltc_frame& frame, const SMPTETime& time,
                      const std::uint8_t* userBytes) noexcept;

/// Writes the bits as `samples` samples of a square signal of ±`level`, which begins
/// at +`level` and changes at the end of each bit and in the middle of a 1. Bits end at
/// the sample nearest to their place; one of an odd number of samples has a 0 at its
/// centre. The edges are for a low-pass to round off.
///
/// `buffer` holds one sample more: when the last bit is longer than the mean of the
/// bits, the sample after the frame is scaled by the difference. The next frame
/// overwrites it.
void ltc_frame_render(ltc_frame& frame, float* buffer, std::uint32_t samples, float level) noexcept;

/// Takes the next bit of a signal, 0 or 1. After a first sync word each 80 bits are a
/// frame, and true says that this bit has completed one, which is there to be decoded
/// until the next bit comes. Then `hostTime`, which came in as this bit's time, has
/// become the time that was given with the last bit of the frame before; 0 for the first.
bool ltc_frame_push_bit(ltc_frame& frame, std::uint8_t bit, std::uint64_t& hostTime) noexcept;

/// Reads the bits. 0, with the digits in the time, its counter one on, the running flag
/// set and the place inside the frame 0. The format and the other flags stay: only the
/// caller knows the rate (ltc_detect_frame_format). `drop` becomes 1 or 0. Units can be
/// above 9 in a damaged frame. `userBytes`, unless null, gets kLTCUserBytes bytes.
///
/// kLTCNoSync when the sync word is not in its place: the flags of the time are cleared,
/// nothing else is written, and a new sync word is looked for; call ltc_frame_reset.
std::int32_t ltc_frame_decode(ltc_frame& frame, SMPTETime& time, std::uint8_t* userBytes,
                              std::uint8_t& drop) noexcept;

inline constexpr std::int32_t kLTCNoSync = -1;

/// Back to what `create` gave. Null does nothing.
void ltc_frame_reset(ltc_frame* frame) noexcept;

/// Writes the kLTCFrameBits bits to `bits`, a byte each.
void ltc_frame_copy_bits(ltc_frame& frame, std::uint8_t* bits) noexcept;

}  // namespace velor
