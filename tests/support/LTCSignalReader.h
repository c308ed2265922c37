// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

#include "tests/support/PublishedLTC.h"

namespace velor {

/// Reads a played signal strictly, by the rules of biphase mark alone: every interval
/// between two changes is a bit or half of one, halves come in pairs, and a frame
/// begins where the one before it ended. What is not so is counted.
class LTCSignalReader {
 public:
  /// `start`: the place of the change at which the frame's first bit begins, between
  /// the samples where the signal goes through zero.
  using FrameBlock = std::function<void(const PublishedBits& bits, double start)>;

  LTCSignalReader(double samplesPerFrame, FrameBlock block)
      : mBit(samplesPerFrame / 80), mBlock(std::move(block)) {}

  void read(double place, std::span<const float> samples) {
    for (const float sample : samples) {
      if (mLast != 0 && (sample > 0) != (mLast > 0)) {
        change(place - static_cast<double>(sample / (sample - mLast)));
      }
      // Behind the filter silence is not zero.
      const bool isSignal = std::fabs(sample) > kSilence;
      if (isSignal && mLast == 0) {
        begin(place);
      } else if (!isSignal && mLast != 0 && ++mQuiet > mBit) {
        mLast = 0;
        ++silences;
      }
      if (isSignal) {
        mLast = sample;
        mQuiet = 0;
      }
      ++place;
    }
  }

  double onset = 0;  ///< place of the first sample behind the last silence
  int torn = 0;      ///< intervals and frames of a wrong length
  int silences = 0;  ///< stretches of silence behind a signal

 private:
  static constexpr float kSilence = 1e-4F;
  // An interval is a bit or half a bit when it is that to so many parts of a bit.
  static constexpr double kTolerance = 0.2;

  // Out of silence a frame begins.
  void begin(double place) {
    onset = mChange = mBitStart = place;
    mHalf = false;
    mIsFraming = true;
    mCount = 0;
  }

  void change(double place) {
    const double interval = (place - std::exchange(mChange, place)) / mBit;
    const bool isHalf = std::fabs(interval - 0.5) < kTolerance;
    if (!isHalf && std::fabs(interval - 1) >= kTolerance) {
      tear(place);
    } else if (isHalf && !mHalf) {
      mHalf = true;
    } else if (mHalf && !isHalf) {
      // Before a frame is found either of the two halves may have come first.
      if (mIsFraming) {
        tear(place);
      }
      mHalf = false;
      push(0, place);
    } else {
      push(mHalf ? 1 : 0, place);
      mHalf = false;
    }
  }

  void tear(double place) {
    torn += mIsFraming ? 1 : 0;
    mIsFraming = false;
    mHalf = false;
    mBitStart = place;
    mSync = 0;
  }

  void push(std::uint8_t bit, double end) {
    mSync = static_cast<std::uint16_t>(mSync << 1U | bit);
    const bool isSync = mSync == 0x3FFD;
    if (mIsFraming) {
      mStart = mCount == 0 ? mBitStart : mStart;
      mBits[mCount++] = bit;
      if (isSync != (mCount == kPublishedLTC.size())) {
        ++torn;
        mIsFraming = false;
      } else if (isSync) {
        mBlock(mBits, mStart);
      }
    }
    if (isSync) {
      mIsFraming = true;
      mCount = 0;
    }
    mBitStart = end;
  }

  const double mBit;  // samples
  const FrameBlock mBlock;
  float mLast = 0;
  double mChange = 0;    // the last one
  double mBitStart = 0;  // that of the bit in progress
  double mStart = 0;     // that of the frame in progress
  int mQuiet = 0;        // samples
  bool mHalf = false;
  bool mIsFraming = false;
  std::uint16_t mSync = 0;
  std::size_t mCount = 0;
  PublishedBits mBits{};
};

}  // namespace velor
