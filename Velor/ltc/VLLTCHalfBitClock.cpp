// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCHalfBitClock.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "kvtimecode/ltc_frame.h"

namespace velor {
namespace {

constexpr double kHalfBits = 2.0 * static_cast<double>(kLTCFrameBits);
constexpr double kBeyond = 1.5;

constexpr double kEnvelopeHalfBits = 12;
constexpr float kHysteresis = 0.3F;
constexpr float kQuietest = 1e-7F;  // -140 dBFS
// In silence filters would fall to numbers with which processors are slow.
constexpr float kNoDenormals = 1e-20F;

// The loop follows flutter of 10 % at 9 Hz, and takes a third off the jitter of edges.
constexpr double kPhasePart = 0.3;
constexpr double kLengthPart = 0.05;
constexpr double kOutlier = 0.35;  // half bits
constexpr double kFar = 0.25;
constexpr float kJitterPart = 1.0F / 64;
constexpr float kQuietJitter = 0.004F;
constexpr float kErrorPart = 1.0F / 16;
constexpr float kLostErrors = 0.05F;  // random edges have 1/12
constexpr std::size_t kMostUnseen = 40;
constexpr int kDouble = 4;  // half bits from one edge to the next; a 0 has two
constexpr std::size_t kMostDoubles = 3;
constexpr double kLongestWait = 4;  // half bits without an edge before they count

constexpr double kLockCoherence = 0.75;
constexpr double kFitError = 0.15;  // half bits, rms
// Where half bits have so few samples, edges that were put on whole samples scatter more.
constexpr double kFewSamples = 3;
constexpr double kFewLockCoherence = 0.6;
constexpr double kFewFitError = 0.2;
constexpr double kFewFar = 0.42;
constexpr double kCandidateStep = 1.014;
constexpr int kCandidatesAtOnce = 3;
constexpr std::size_t kFewEdges = 8;
constexpr double kFewCoherence = 0.45;
constexpr double kHalfCoherence = 0.5;
constexpr std::size_t kNewEdges = 6;
// From here on an attempt is made for all new edges only: what is found late is read from
// its begin on all the same.
constexpr std::size_t kMostFailures = 30;
constexpr int kBefore = 6;
constexpr double kLongestRun = 8;    // half bits without an edge
constexpr double kLeastPart = 0.15;  // of the last half bit, to be one
constexpr double kJoinError = 0.25;  // half bits

constexpr std::size_t kTurn = 1024;

const std::array<float, kTurn>& cosines() {
  static const auto table = [] {
    std::array<float, kTurn> values{};
    for (std::size_t i = 0; i < kTurn; ++i) {
      values[i] = static_cast<float>(
          std::cos(2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(kTurn)));
    }
    return values;
  }();
  return table;
}

}  // namespace

VLLTCHalfBitClock::VLLTCHalfBitClock(double sampleRate, double slowest, double fastest)
    : mFilter(sampleRate / kHalfBits / std::sqrt(slowest * fastest)) {
  const double steps = sampleRate * mFilter.scale() / kHalfBits;
  mShortest = steps / fastest;
  mLongest = steps / slowest;
  mEnvelopePart = static_cast<float>(1 / (kEnvelopeHalfBits * std::sqrt(mShortest * mLongest)));
  const bool hasFewSamples = sampleRate / kHalfBits / std::sqrt(slowest * fastest) < kFewSamples;
  mLockCoherence = hasFewSamples ? kFewLockCoherence : kLockCoherence;
  mFar = hasFewSamples ? kFewFar : kFar;
  mFitError = hasFewSamples ? kFewFitError : kFitError;
  cosines();
}

void VLLTCHalfBitClock::restart(double place) {
  mFilter.restart(place);
  mSteps = {};
  mIndex = 0;
  mBlockStep = 0;
  mStep = 0;
  mLast = 0;
  mEnvelope = 0;
  mSign = -1;
  mBoundary = 0;
  mHalfBitCount = 0;
  mPastCount = 0;
  mFailures = 0;
  unlock();
}

void VLLTCHalfBitClock::unlock() {
  mIsLocked = false;
  mMayJoin = false;
  mEdgeCount = 0;
}

// Where the signal crosses zero between a step of the block and the one before it.
double VLLTCHalfBitClock::crossingBefore(std::size_t index) const {
  const auto after = static_cast<double>(mSteps[index]);
  const auto before = static_cast<double>(index > 0 ? mSteps[index - 1] : mLast);
  return static_cast<double>(mBlockStep + index) + before / (before - after) - mFilter.delay();
}

// Goes on to the first step after which there are half bits; false when the block has none
// left. Noise crosses zero often and at random, so that it is cheaper to work the place of a
// crossing out only once it is that of an edge.
bool VLLTCHalfBitClock::advance() {
  constexpr std::size_t kNone = VLLTCLineFilter::kBlock;
  std::size_t crossed = kNone;
  float envelope = mEnvelope;
  bool wasPositive = (mIndex > 0 ? mSteps[mIndex - 1] : mLast) > 0;
  for (; mIndex < mSteps.size() && mHalfBitCount == 0; ++mIndex) {
    const float value = mSteps[mIndex];
    const bool isPositive = value > 0;
    crossed = isPositive != wasPositive ? mIndex : crossed;
    wasPositive = isPositive;
    envelope = (1 - mEnvelopePart) * envelope + mEnvelopePart * (std::fabs(value) + kNoDenormals);
    mStep = mBlockStep + mIndex + 1;
    if (value * mSign < -std::max(kHysteresis * envelope, kQuietest)) {
      mSign = -mSign;
      mCrossing = crossed < kNone ? crossingBefore(crossed) : mCrossing;
      takeEdge(mCrossing);
    }
    if (mIsLocked &&
        static_cast<double>(mStep) - mFilter.delay() > mBoundary + kLongestWait * mLength) {
      emit(mBoundary + mLength);
      if (++mUnseen > kMostUnseen) {
        unlock();
      }
    }
  }
  mCrossing = crossed < kNone ? crossingBefore(crossed) : mCrossing;
  mEnvelope = envelope;
  if (mHalfBitCount != 0) {
    return true;
  }
  mLast = mSteps.empty() ? mLast : mSteps.back();
  return false;
}

void VLLTCHalfBitClock::begin(std::span<const float> steps) {
  mBlockStep = mStep;
  mSteps = steps;
  mIndex = 0;
}

void VLLTCHalfBitClock::takeEdge(double place) {
  if (mEdgeCount == kEdges) {
    forgetEdges(1);
  }
  mEdges[mEdgeCount++] = place;
  mPast[mPastCount++ % kPastKept] = place;
  if (mIsLocked) {
    if (!follow(place)) {
      forgetEdges(mEdgeCount - 2);
    }
  } else if (mEdgeCount == kEdges) {
    acquire();
  }
}

void VLLTCHalfBitClock::forgetEdges(std::size_t count) {
  std::copy(mEdges.begin() + static_cast<std::ptrdiff_t>(count), mEdges.end(), mEdges.begin());
  mEdgeCount -= count;
}

// False when this edge begins something else. The edge before it then is the first one
// to look at.
bool VLLTCHalfBitClock::follow(double edge) {
  mUnseen = 0;
  const double place = (edge - mBoundary) / mLength;
  const double count = std::round(place);
  const double error = count < 1 ? -0.5 : place - count;
  const auto part = static_cast<float>(error);
  mErrors += kErrorPart * (part * part - mErrors);
  const bool isFar = std::fabs(error) > mFar;
  if (mErrors > kLostErrors || (isFar && mJitter < kQuietJitter)) {
    mIsLocked = false;
    mMayJoin = true;
    return false;
  }
  if (!isFar) {
    mJitter += kJitterPart * (part * part - mJitter);
  }
  if (count < 1) {
    return true;
  }
  // Half the grid of a signal at half the speed fits too, and would be followed up to a speed
  // at which the signal itself can be read.
  const auto halfBits = static_cast<int>(count);
  mDoubles = halfBits % 2 != 0 ? 0 : mDoubles + (halfBits == kDouble ? 1 : 0);
  if (mDoubles > kMostDoubles) {
    mIsLocked = false;
    mMayJoin = false;
    return false;
  }
  const bool isOutlier = std::fabs(error) > std::max(kOutlier, mFar);
  const double move = isOutlier ? 0 : kPhasePart * error * mLength;
  const double each = mLength + move / count;
  for (int i = 0; i < halfBits; ++i) {
    emit(mBoundary + each);
  }
  if (!isOutlier) {
    mLength = std::clamp(mLength + kLengthPart * error * mLength / count, mShortest / kBeyond,
                         mLongest * kBeyond);
  }
  return true;
}

// How well the first edges lie on a grid: 1 for exactly, about 1/sqrt(count) for random ones.
double VLLTCHalfBitClock::coherence(double length, std::size_t count) const {
  const auto& table = cosines();
  const double perStep = static_cast<double>(kTurn) / length;
  float x = 0;
  float y = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto angle = static_cast<std::size_t>((mEdges[i] - mEdges[0]) * perStep);
    x += table[angle % kTurn];
    y += table[(angle + kTurn / 4) % kTurn];
  }
  return static_cast<double>(std::sqrt(x * x + y * y)) / static_cast<double>(count);
}

// The grid on which the edges lie best, and how well they do. Most signals are not LTC, so
// that few edges and few lengths decide first whether to look closer.
std::pair<double, double> VLLTCHalfBitClock::bestGrid() const {
  double best = 0;
  double length = 0;
  for (double each = mLongest; each >= mShortest * 0.999;) {
    const bool isLikely = coherence(each / kCandidateStep, kFewEdges) >= kFewCoherence;
    for (int i = 0; i < kCandidatesAtOnce; ++i, each /= kCandidateStep) {
      if (!isLikely || coherence(each, kEdges / 2) < kHalfCoherence) {
        continue;
      }
      // Half of a grid's length fits as well: the longest that fits is the one.
      const double value = coherence(each, kEdges);
      if (value > best * 1.05 || (value > best && each > length * 0.9)) {
        best = value;
        length = each;
      }
    }
  }
  return {length, best};
}

void VLLTCHalfBitClock::acquire() {
  const auto [length, best] = bestGrid();
  const double end = mBoundary;
  if (best <= mLockCoherence || !fit(length)) {
    // The next attempt is worth its time when some edges are new.
    forgetEdges(mFailures < kMostFailures ? kNewEdges : kEdges);
    ++mFailures;
    mMayJoin = false;
    return;
  }
  mFailures = 0;
  mIsLocked = true;
  mIsFirst = true;
  if (mMayJoin && std::fabs(mBoundary - end) < kJoinError * mLength) {
    mBoundary = end;
    mIsFirst = false;
  } else {
    reachBack(end);
    // A signal that begins low, or in noise, has its first edges too weak to be seen.
    for (int i = 0; i < kBefore && mBoundary - mLength > std::max(end, -mLength / 2); ++i) {
      mBoundary -= mLength;
    }
  }
  mMayJoin = false;
  mErrors = 0;
  mJitter = kQuietJitter;
  mUnseen = 0;
  mDoubles = 0;
  for (std::uint64_t back = std::min<std::uint64_t>(mPastCount, kPastKept); back > 0; --back) {
    const double edge = mPast[(mPastCount - back) % kPastKept];
    if (edge > mBoundary + mLength / 2 && !follow(edge)) {
      forgetEdges(kEdges - std::min<std::size_t>(back + 1, kEdges - 1));
      return;
    }
  }
}

// The edges before those by which the grid was found may lie on it too, up to this place.
void VLLTCHalfBitClock::reachBack(double end) {
  const double oldest =
      static_cast<double>(mStep) - static_cast<double>(VLLTCLineFilter::kKept) + mLongest;
  double boundary = mBoundary;
  double length = mLength;
  double errors = 0;
  for (std::uint64_t back = 1; back <= std::min<std::uint64_t>(mPastCount, kPastKept); ++back) {
    const double edge = mPast[(mPastCount - back) % kPastKept];
    if (edge > mBoundary - length / 2) {
      continue;
    }
    const double place = (boundary - edge) / length;
    const double count = std::round(place);
    const double error = count < 1 ? -0.5 : place - count;
    errors += static_cast<double>(kErrorPart) * (error * error - errors);
    if (edge < std::max(end, oldest) || count > kLongestRun ||
        errors > static_cast<double>(kLostErrors)) {
      return;
    }
    if (count < 1 || std::fabs(error) > kOutlier) {
      continue;
    }
    boundary -= (count + kPhasePart * error) * length;
    length = std::clamp(length * (1 + kLengthPart * error / count), mShortest / kBeyond,
                        mLongest * kBeyond);
    if (std::fabs(error) < kFar) {
      mBoundary = boundary;
      mLength = length;
    }
  }
}

// The line through the edges, of which each has the number that the grid gives it.
bool VLLTCHalfBitClock::fit(double length) {
  for (int round = 0; round < 2; ++round) {
    double n = 0, s1 = 0, s2 = 0, sy = 0, sxy = 0, number = 0, residue = 0;
    double before = mEdges[0];
    for (std::size_t i = 0; i < kEdges; ++i) {
      number += std::round((mEdges[i] - before) / length);
      before = mEdges[i];
      const double y = mEdges[i] - mEdges[0];
      n += 1;
      s1 += number;
      s2 += number * number;
      sy += y;
      sxy += number * y;
    }
    const double determinant = n * s2 - s1 * s1;
    if (!(determinant > 0)) {
      return false;
    }
    const double slope = (n * sxy - s1 * sy) / determinant;
    const double offset = (sy - slope * s1) / n;
    number = 0;
    before = mEdges[0];
    for (std::size_t i = 0; i < kEdges; ++i) {
      number += std::round((mEdges[i] - before) / length);
      before = mEdges[i];
      const double away = mEdges[i] - mEdges[0] - offset - slope * number;
      residue += away * away;
    }
    if (!(slope > mShortest / kBeyond && slope < mLongest * kBeyond) ||
        std::sqrt(residue / n) > mFitError * slope) {
      return false;
    }
    length = slope;
    mLength = slope;
    mBoundary = mEdges[0] + offset;
  }
  return true;
}

void VLLTCHalfBitClock::emit(double end) {
  if (mHalfBitCount == kHalfBitsKept) {
    return;
  }
  VLLTCHalfBit& halfBit = mHalfBits[mHalfBitCount++];
  halfBit.level = static_cast<float>((mFilter.sumTo(end, mStep) - mFilter.sumTo(mBoundary, mStep)) /
                                     (end - mBoundary));
  halfBit.begin = mFilter.placeOf(mBoundary);
  halfBit.end = mFilter.placeOf(end);
  halfBit.isFirst = mIsFirst;
  mIsFirst = false;
  mBoundary = end;
}

void VLLTCHalfBitClock::emitRest() {
  while (mIsLocked && mBoundary + kLeastPart * mLength < static_cast<double>(mStep)) {
    emit(mBoundary + mLength);
  }
}

}  // namespace velor
