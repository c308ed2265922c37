// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "Kv-Appkit/KVLineFit.h"
#include "Velor/ltc/VLLTCFrameFinder.h"
#include "Velor/ltc/VLLTCReport.h"

namespace velor {

/// Measures the signal of frames whose bits are known, which tell where each edge
/// belongs and which level the signal has between them.
///
/// Jitter is how far edges cross the middle of the signal from an even grid through all
/// edges of the frame. Noise is what is left of the middle half of each half bit when the
/// mean of those that have the same neighbours, and hum, are taken off.
///
/// One thread.
class VLLTCMeter {
 public:
  explicit VLLTCMeter(double sampleRate) : mSampleRate(sampleRate) {}

  /// The samples begin at the place `from` of the input and hold the frame. Gives the place
  /// of its begin on the grid of its edges.
  double take(const VLLTCBits& bits, std::span<const float> samples, std::uint64_t from);
  /// The next frame does not follow the last one.
  void close();

  const std::vector<VLLTCReport::Window>& windows() const { return mWindows; }
  /// From 10 to 90 % of the mean edge, s.
  double riseTime() const;

 private:
  static constexpr std::size_t kHalfBits = 2 * kLTCFrameBits;
  static constexpr std::size_t kParts = 4;  // of the middle of a half bit
  static constexpr std::size_t kClasses = 16 * kParts;
  static constexpr std::size_t kSteps = 64;  // of the mean edge

  struct Sample {
    float value;
    std::uint8_t kind;
    std::uint32_t halfBit;  // of the window
  };
  struct Signal {
    std::span<const float> samples;
    double from;
    float at(std::int64_t place) const;
  };

  void findEdges(const VLLTCBits& bits);
  void takeLevels(const VLLTCBits& bits, const Signal& signal);
  void takeJitter(const VLLTCBits& bits, const Signal& signal);
  void takeShape(double begin, double half, const Signal& signal);
  void measureHum(std::vector<double>& residue, VLLTCReport::Window& window) const;

  const double mSampleRate;
  // Of the frame: whether an edge stands at a boundary of half bits, and the levels.
  std::array<bool, kHalfBits + 1> mIsEdge{};
  std::array<float, kHalfBits> mSigns{};
  double mCentre = 0;
  double mGridBegin = 0;
  double mGridEnd = 0;
  double mLevel = 0;

  // Of the window.
  VLLTCReport::Window mWindow;
  KVLineFit mBegins;  // of its frames
  double mFirst = 0;
  double mEnd = 0;
  double mSquares = 0;
  std::vector<Sample> mSamples;
  std::vector<double> mHalfBits;  // their middles
  std::vector<VLLTCReport::Window> mWindows;

  std::array<double, kSteps> mShape{};
  std::array<std::uint64_t, kSteps> mShapeCounts{};
  double mShapeSeconds = 0;  // of half bits
  std::uint64_t mShapes = 0;
};

}  // namespace velor
