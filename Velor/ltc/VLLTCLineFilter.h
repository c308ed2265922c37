// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace velor {

/// Brings a line to a few steps for each half bit, takes out its mean, and smooths it.
///
/// Steps are the samples of the result, from 1 on: interpolated where half bits have few
/// samples, means of several samples where they have many.
///
/// One thread. Realtime-safe: yes, but for the constructor.
class VLLTCLineFilter {
 public:
  static constexpr std::size_t kSamples = 64;  // that process() takes at most
  static constexpr std::size_t kMostMultiply = 8;
  static constexpr std::size_t kBlock = kMostMultiply * kSamples;  // steps that it gives at most

  /// For half bits of about this many samples, at least 0.5.
  explicit VLLTCLineFilter(double halfBit);

  /// Forgets the signal so far; the next sample stands at this place of the input.
  void restart(double place);

  /// Filters at most kSamples. Gives the smoothed steps that follow those given before,
  /// up to the next call.
  std::span<const float> process(std::span<const float> samples);
  /// The input ends: filters silence after it until its last sample has passed.
  std::span<const float> flush();

  /// The sum of all steps up to a place, without their mean and not smoothed. Places may
  /// lie between steps. The sum is known for the kKept steps up to `last`, which must be
  /// in the latest block; other places count as the nearest one of these.
  double sumTo(double place, std::uint64_t last) const;

  /// The place in the input at which a step stands.
  double placeOf(double step) const { return mOrigin + step * mPerStep; }
  /// Steps for each sample.
  double scale() const { return 1 / mPerStep; }
  /// Steps by which smoothing delays.
  double delay() const { return mDelay; }

  static constexpr std::size_t kKept = 3584;  // steps for which sumTo() knows the sum

 private:
  static constexpr std::size_t kTaps = 8;
  static constexpr std::size_t kRawRing = 256;
  static constexpr std::size_t kSumsRing = kKept + kBlock;
  static constexpr std::size_t kSmoothRing = 16;

  std::span<const float> filter(std::size_t count);
  std::size_t interpolate(std::span<const float> samples);
  std::size_t divide(std::span<const float> samples);
  std::size_t removeMean(std::size_t count);
  void smooth(std::size_t count);

  // Constant.
  std::size_t mDivide = 1;
  std::size_t mMultiply = 1;
  double mPerStep = 1;  // samples
  std::size_t mFirstWidth = 0;
  std::size_t mSecondWidth = 0;
  double mDelay = 0;
  std::size_t mMeanWidth = 0;
  std::vector<float> mFilter;  // kTaps for each part of a sample

  double mOrigin = 0;
  float mDivided = 0;
  std::size_t mDividedCount = 0;
  std::array<float, kTaps - 1> mTaps{};  // the last samples of the block before

  // The block is filtered in place, stage by stage.
  std::array<float, kBlock> mBlock{};
  std::uint64_t mRawStep = 0;
  std::array<float, kRawRing> mRaw{};
  std::array<double, kRawRing> mRawSums{};
  double mRawSum = 0;
  float mMean = 0;
  std::uint64_t mStep = 0;
  std::array<double, kSumsRing> mSums{};
  std::array<double, kSmoothRing> mSmoothSums{};
  double mSum = 0;
  double mSmoothSum = 0;
};

}  // namespace velor
