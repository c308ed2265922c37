// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "Velor/ltc/VLLTCLineFilter.h"

// Recovers the clock of an LTC signal and the level of each half bit.
//
// VLLTCLineFilter takes out the DC and smooths the signal. Each crossing of zero that goes on
// beyond a part of the envelope is an edge. While the clock is not locked, it looks for the
// grid of half bits on which the last edges lie. A second-order loop then keeps the grid on
// the edges. The level of a half bit is the mean of the signal over its whole length, which
// is the best filter for a square pulse in white noise; edges alone decide where half bits
// begin.
namespace velor {

/// Half a bit of a biphase mark signal.
struct VLLTCHalfBit {
  float level = 0;   ///< mean of the signal, without its DC
  double begin = 0;  ///< place in the input: sample n stands at n
  double end = 0;
  bool isFirst = false;  ///< the clock has just locked: nothing before belongs to it
};

/// One thread. Realtime-safe: yes, but for the constructor.
class VLLTCHalfBitClock {
 public:
  /// Finds signals of `slowest` to `fastest` frames per second, at most an octave, and
  /// follows them half an octave beyond.
  VLLTCHalfBitClock(double sampleRate, double slowest, double fastest);

  /// Reads samples on, and calls `take` with each half bit, a few bits later.
  template <class Take>
  void process(std::span<const float> samples, Take&& take) {
    while (!samples.empty()) {
      const std::size_t count = std::min(samples.size(), VLLTCLineFilter::kSamples);
      begin(mFilter.process(samples.first(count)));
      samples = samples.subspan(count);
      while (advance()) {
        drain(take);
      }
    }
  }

  /// The input ends: gives the half bits up to there.
  template <class Take>
  void finish(Take&& take) {
    begin(mFilter.flush());
    while (advance()) {
      drain(take);
    }
    emitRest();
    drain(take);
  }

  /// Forgets the signal so far; the next sample stands at this place of the input.
  void restart(double place);

  bool isLocked() const { return mIsLocked; }

 private:
  static constexpr std::size_t kEdges = 24;
  static constexpr std::size_t kPastKept = 256;  // edges
  static constexpr std::size_t kHalfBitsKept = 512;

  void begin(std::span<const float> steps);
  bool advance();
  double crossingBefore(std::size_t index) const;
  void takeEdge(double place);
  void forgetEdges(std::size_t count);
  bool follow(double edge);
  void acquire();
  void reachBack(double end);
  double coherence(double length, std::size_t count) const;
  std::pair<double, double> bestGrid() const;
  bool fit(double length);
  void emit(double end);
  void emitRest();
  void unlock();

  template <class Take>
  void drain(Take&& take) {
    for (std::size_t i = 0; i < mHalfBitCount; ++i) {
      take(mHalfBits[i]);
    }
    mHalfBitCount = 0;
  }

  VLLTCLineFilter mFilter;

  // Constant. Lengths are in steps of the filter.
  double mShortest = 0;  // half bits
  double mLongest = 0;
  float mEnvelopePart = 0;
  double mLockCoherence = 0;
  double mFitError = 0;
  double mFar = 0;

  std::span<const float> mSteps;  // a block of the filter
  std::size_t mIndex = 0;         // of the first one that is still to be looked at
  std::uint64_t mBlockStep = 0;   // the last one before the block
  std::uint64_t mStep = 0;
  float mLast = 0;  // the last step before the block
  float mEnvelope = 0;
  double mCrossing = 0;
  float mSign = -1;  // of the signal after the last edge

  std::array<double, kEdges> mEdges{};
  std::size_t mEdgeCount = 0;
  std::array<double, kPastKept> mPast{};
  std::uint64_t mPastCount = 0;

  std::size_t mFailures = 0;  // to find a grid

  bool mIsLocked = false;
  bool mIsFirst = false;
  bool mMayJoin = false;  // the first edge that is kept stands at the last boundary
  double mLength = 0;     // of a half bit
  double mBoundary = 0;   // up to which half bits were given
  float mErrors = 0;      // mean of the squares
  float mJitter = 0;      // mean of the squares, but for leaps
  std::size_t mUnseen = 0;
  std::size_t mDoubles = 0;  // zeros of twice the length since an edge after 1 or 3 half bits

  std::array<VLLTCHalfBit, kHalfBitsKept> mHalfBits{};
  std::size_t mHalfBitCount = 0;
};

}  // namespace velor
