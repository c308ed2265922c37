// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "Velor/ltc/VLLTCHalfBitClock.h"
#include "kvtimecode/ltc_frame.h"

namespace velor {

/// The bits of a frame and its place.
struct VLLTCBits {
  std::uint64_t word = 0;  ///< all but the sync word; bit 0 is the first of the frame
  double begin = 0;        ///< place in the input at which it began, also in reverse
  double end = 0;
  double mark = 0;  ///< the middle of the bit before
  bool isReverse = false;
  bool isCut = false;  ///< the end of its sync word is missing; `end` is where it would end

  std::uint32_t field(const LTCField& field) const {
    return static_cast<std::uint32_t>(word >> field.first) & ((1U << field.width) - 1U);
  }
  std::array<std::uint8_t, kLTCUserBytes> userBits() const {
    std::array<std::uint8_t, kLTCUserBytes> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<std::uint8_t>(field(kLTCUserGroups[2 * i]) |
                                           field(kLTCUserGroups[2 * i + 1]) << 4U);
    }
    return bytes;
  }
};

/// Finds frames in a row of half bits, forwards and backwards.
///
/// Near a sync word it takes the row of bits that fits the levels best under the rule
/// that the level changes at the begin of each bit, so that one bad half bit costs
/// nothing. A frame counts when that row has the sync word and digits of a time, and when
/// no bit could as well be the other one. Forwards, a frame that was cut in the last four bits
/// of its sync word is found too, by the twelve bits before them.
///
/// One thread. Realtime-safe: yes.
class VLLTCFrameFinder {
 public:
  std::optional<VLLTCBits> push(const VLLTCHalfBit& halfBit);
  /// The signal ends. A frame in reverse otherwise comes with the half bit after it, and one
  /// that was cut when the clock has found the signal again.
  std::optional<VLLTCBits> finish();

 private:
  static constexpr std::size_t kHalfBits = 2 * kLTCFrameBits;
  static constexpr std::size_t kKept = 256;

  struct Row {
    std::size_t newest;   // half bit, counted back from the last one
    std::size_t missing;  // half bits at the end of the frame
    bool isReverse;
    bool hasOutside;  // the half bit beside the first bit is there
  };
  std::optional<VLLTCBits> read(const Row& row) const;
  std::optional<VLLTCBits> takeCut();
  bool hasReverseSync(std::size_t extra) const;
  const VLLTCHalfBit& back(std::size_t count) const {
    return mHalfBits[(mNumber - 1 - count) % kKept];
  }

  std::array<VLLTCHalfBit, kKept> mHalfBits{};
  std::array<bool, kKept> mIsReverseSync{};
  std::uint64_t mNumber = 0;
  std::uint64_t mMostOfSync = 0;  // mNumber when all of a sync word but its end had come; or 0
  std::size_t mCount = 0;         // since the clock locked
  std::uint32_t mSigns = 0;       // the last 32
};

}  // namespace velor
