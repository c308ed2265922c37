// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "kvtimecode/SMPTETime.h"

// MIDI Time Code on the wire (MIDI 1.0, MTC, RP-004/008), for who writes it and
// who reads it.
namespace velor {

// --- rates ---

/// The two bits that stand for a rate: 24, 25, 29.97 drop and 30 frames a second.
inline constexpr std::uint32_t kMTCRateCodes = 4;

/// Rate code by format code. Seven formats share four codes, so 23.98 goes out
/// as 24, 30 drop as 29.97 drop, and 29.97 as 30.
inline constexpr std::array<std::uint8_t, 12> kMTCRateCodeOfType = {0, 1, 2, 3, 3, 2,
                                                                    1, 1, 1, 1, 1, 0};
/// Stands for an unknown format.
inline constexpr std::uint8_t kMTCRateCodeOfNoType = 1;

/// The format that a reader takes a rate code for.
inline constexpr std::array<std::uint32_t, kMTCRateCodes> kMTCTypeOfRateCode = {
    kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType2997Drop, kSMPTETimeType30};

constexpr std::uint8_t mtc_rate_code(std::uint32_t type) noexcept {
  return type < kMTCRateCodeOfType.size() ? kMTCRateCodeOfType[type] : kMTCRateCodeOfNoType;
}

// --- quarter-frame messages: the status, then piece code << 4 | nibble ---

inline constexpr std::uint8_t kMTCQuarterFrameStatus = 0xF1;
inline constexpr std::size_t kMTCQuarterFrameBytes = 2;
inline constexpr std::uint8_t kMTCPieces = 8;
/// Frames of real time that the eight pieces of one time take.
inline constexpr std::uint32_t kMTCFramesPerBlock = 2;

/// The nibble of a field that a piece carries.
struct MTCPiece {
  std::int16_t SMPTETime::*field;
  unsigned shift;
};
inline constexpr std::array<MTCPiece, kMTCPieces> kMTCPieceLayout = {{{&SMPTETime::mFrames, 0},
                                                                      {&SMPTETime::mFrames, 4},
                                                                      {&SMPTETime::mSeconds, 0},
                                                                      {&SMPTETime::mSeconds, 4},
                                                                      {&SMPTETime::mMinutes, 0},
                                                                      {&SMPTETime::mMinutes, 4},
                                                                      {&SMPTETime::mHours, 0},
                                                                      {&SMPTETime::mHours, 4}}};
// The last piece has one bit for the hours; the rate code follows, then a bit
// that has no meaning.
inline constexpr std::uint8_t kMTCRatePiece = 7;
inline constexpr std::uint8_t kMTCRatePieceHoursMask = 0x1;
inline constexpr unsigned kMTCRatePieceRateShift = 1;

// --- full-frame message: a universal real-time SysEx to all devices ---

inline constexpr std::array<std::uint8_t, 5> kMTCFullFrameHead = {0xF0, 0x7F, 0x7F, 0x01, 0x01};
inline constexpr std::size_t kMTCFullFrameHours = 5;  // rate code << 5 | hours
inline constexpr std::size_t kMTCFullFrameMinutes = 6;
inline constexpr std::size_t kMTCFullFrameSeconds = 7;
inline constexpr std::size_t kMTCFullFrameFrames = 8;
inline constexpr std::size_t kMTCFullFrameEnd = 9;
inline constexpr std::size_t kMTCFullFrameBytes = 10;
inline constexpr unsigned kMTCFullFrameRateShift = 5;
inline constexpr std::uint8_t kMTCFullFrameHoursMask = 0x1F;

// --- loop token: a device control SysEx (global parameter) of this system's own ---

inline constexpr std::array<std::uint8_t, 14> kMTCLoopTokenHead = {
    0xF0, 0x7F, 0x7F, 0x04, 0x05, 0x03, 0x04, 0x00, 0x39, 0x38, 0x22, 0x71, 0x11, 0x61};
/// Most significant byte first.
inline constexpr std::size_t kMTCLoopTokenValue = 14;
inline constexpr std::size_t kMTCLoopTokenEnd = 18;
inline constexpr std::size_t kMTCLoopTokenBytes = 19;
/// Data bytes of a SysEx have seven bits.
inline constexpr std::uint32_t kMTCLoopTokenMask = 0x7F7F7F7F;

inline constexpr std::uint8_t kMTCSysExEnd = 0xF7;

// --- statuses; 0 is success ---

inline constexpr std::int32_t kMTCNullArgument = -50;
inline constexpr std::int32_t kMTCNoFullFrame = -12089;

}  // namespace velor
