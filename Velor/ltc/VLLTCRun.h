// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <utility>

#include "Velor/ltc/VLLTCFrameFinder.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// Passes frames on whose times make a row.
///
/// The code of LTC has no check sum. A frame that continues the run of those before it,
/// by its time and by its place, is passed on at once, also after a drop-out. Any other
/// one is held back until the next one continues it, and is discarded when that does not.
/// A frame that was cut in its sync word counts only directly after a frame of the run.
///
/// One thread. Realtime-safe: yes.
class VLLTCRun {
 public:
  /// Calls `take` with none, one or two frames, in their order.
  template <class Take>
  void push(const VLLTCBits& bits, Take&& take) {
    const VLLTCBits* const before = mHeld ? &*mHeld : mLast ? &*mLast : nullptr;
    if (before != nullptr && isDouble(*before, bits)) {
      return;
    }
    if (bits.isCut) {
      if (mLast && !mHeld && isNext(*mLast, bits, mCountings)) {
        mLast = bits;
        take(bits);
      }
      return;
    }
    mRepeats = before != nullptr && isRepeat(*before, bits) ? mRepeats + 1 : 0;
    if (mRepeats >= kStill) {
      flush(take);
    } else if (const Countings both = mHeld ? confirmationOf(bits) : 0; both != 0) {
      flush(take);
      mCountings = (mCountings & both) != 0 ? mCountings & both : both;
    } else if (const Countings run = mLast ? countingsOf(*mLast, bits, mCountings) : 0; run) {
      mHeld.reset();
      mCountings = run;
    } else {
      mHeld = bits;
      return;
    }
    mLast = bits;
    take(bits);
  }

 private:
  /// A bit for each way to count frames up to a second.
  using Countings = std::uint32_t;
  static constexpr Countings kAnyCounting = ~Countings{0};

  // A machine that stands still repeats its frame. Once is not enough: where tape was cut
  // out of a frame, its first bits are those of another one.
  static constexpr std::uint32_t kStill = 2;

  template <class Take>
  void flush(Take&& take) {
    if (mHeld) {
      take(*std::exchange(mHeld, std::nullopt));
    }
  }
  /// Whether the one directly follows the other, by its time and by its place.
  static bool isNext(const VLLTCBits& before, const VLLTCBits& bits, Countings among);
  static bool isDouble(const VLLTCBits& before, const VLLTCBits& bits);
  /// Those of `among` by which the one continues the other.
  static Countings countingsOf(const VLLTCBits& before, const VLLTCBits& bits, Countings among);

  Countings confirmationOf(const VLLTCBits& bits) const;
  static bool isRepeat(const VLLTCBits& before, const VLLTCBits& bits);

  std::uint32_t mRepeats = 0;
  Countings mCountings = kAnyCounting;  // of the run
  std::optional<VLLTCBits> mLast;
  std::optional<VLLTCBits> mHeld;
};

/// The digits of a frame, in this format.
SMPTETime VLLTCTimeOf(const VLLTCBits& bits, std::uint32_t type);

}  // namespace velor
