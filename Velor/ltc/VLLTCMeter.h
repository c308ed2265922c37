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
/// Jitter is the distance of each edge, where the signal crosses its middle, from an even
/// grid through all edges of the frame. For noise, the middle half of each half bit counts:
/// the mean of all half bits that have the same neighbours is subtracted from it, then hum.
///
/// One thread. Realtime-safe: no.
class VLLTCMeter {
 public:
  explicit VLLTCMeter(double sampleRate) : mSampleRate(sampleRate) {}

  /// Measures a frame. `samples` begin at the place `from` of the input and hold all of it.
  /// Gives the place at which the frame begins on the grid of its edges.
  double take(const VLLTCBits& bits, std::span<const float> samples, std::uint64_t from);
  /// Ends the window: the next frame does not follow the last one, or none comes.
  void close();

  const std::vector<VLLTCReport::Window>& windows() const { return mWindows; }
  /// Seconds in which the mean edge rises from 10 to 90 %.
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
  // The frame that is measured, by boundary between half bits: whether its bits have an edge
  // there, and whether the signal is above (1) or below (-1) its middle after it.
  std::array<bool, kHalfBits + 1> mIsEdge{};
  std::array<float, kHalfBits> mSigns{};
  double mCentre = 0;
  double mGridBegin = 0;
  double mGridEnd = 0;
  double mLevel = 0;

  // The window to which frames are added until it is long enough.
  VLLTCReport::Window mWindow;
  KVLineFit mBegins;              // where its frames begin
  double mFirst = 0;              // where its first frame begins
  double mEnd = 0;                // where its last frame ends
  double mSquares = 0;            // sum of the squares of the jitter of its edges
  std::vector<Sample> mSamples;   // those in the middle halves of its half bits
  std::vector<double> mHalfBits;  // the middles of its half bits
  std::vector<VLLTCReport::Window> mWindows;

  std::array<double, kSteps> mShape{};
  std::array<std::uint64_t, kSteps> mShapeCounts{};
  double mShapeSeconds = 0;   // sum of the lengths of half bits, one of each frame
  std::uint64_t mShapes = 0;  // frames in the mean edge
};

}  // namespace velor
