// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCHalfBitClock.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kvtimecode/ltc_frame.h"

namespace velor {
namespace {

constexpr double kHalfBits = 2.0 * static_cast<double>(kLTCFrameBits);
constexpr double kLeastSteps = 8;  // for each half bit
constexpr double kBeyond = 1.5;

// Moving averages, as parts of the middle half bit. Together they are shorter than the
// shortest one, so that an edge moves none of its neighbours.
constexpr double kFirstPart = 0.55;
constexpr double kSecondPart = 0.3;

constexpr double kMeanHalfBits = 16;
constexpr double kEnvelopeHalfBits = 12;
constexpr float kHysteresis = 0.3F;
constexpr float kQuietest = 1e-7F;  // -140 dBFS
constexpr float kLoudest = 1e3F;
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

constexpr double kLockCoherence = 0.75;
constexpr double kFitError = 0.15;  // half bits, rms
// Where half bits have so few samples, edges that were put on whole samples scatter more.
constexpr double kFewSamples = 3;
constexpr double kFewLockCoherence = 0.6;
constexpr double kFewFitError = 0.2;
constexpr double kFewFar = 0.42;
constexpr double kCandidateStep = 1.014;
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

std::vector<float> interpolator(std::size_t parts, std::size_t taps) {
  std::vector<float> filter;
  for (std::size_t part = 0; part < parts; ++part) {
    std::vector<double> values;
    double sum = 0;
    for (std::size_t tap = 0; tap < taps; ++tap) {
      const double x = static_cast<double>(tap) - static_cast<double>(taps) / 2 + 1 -
                       static_cast<double>(part) / static_cast<double>(parts);
      const double angle = std::numbers::pi * x;
      const double window = 0.5 + 0.5 * std::cos(2 * angle / static_cast<double>(taps));
      values.push_back((x == 0 ? 1 : std::sin(angle) / angle) * window);
      sum += values.back();
    }
    for (const double value : values) {
      filter.push_back(static_cast<float>(value / sum));
    }
  }
  return filter;
}

}  // namespace

VLLTCHalfBitClock::VLLTCHalfBitClock(double sampleRate, double slowest, double fastest) {
  double middle = sampleRate / kHalfBits / std::sqrt(slowest * fastest);
  mLockCoherence = middle < kFewSamples ? kFewLockCoherence : kLockCoherence;
  mFar = middle < kFewSamples ? kFewFar : kFar;
  mFitError = middle < kFewSamples ? kFewFitError : kFitError;
  while (middle < kLeastSteps) {
    middle *= 2;
    mMultiply *= 2;
  }
  mDivide = std::max<std::size_t>(1, static_cast<std::size_t>(middle / kLeastSteps));
  middle /= static_cast<double>(mDivide);
  const double scale = static_cast<double>(mMultiply) / static_cast<double>(mDivide);
  mShortest = sampleRate * scale / kHalfBits / fastest;
  mLongest = sampleRate * scale / kHalfBits / slowest;
  mFirstWidth =
      std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(kFirstPart * middle)));
  mSecondWidth =
      std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(kSecondPart * middle)));
  mMeanWidth = 2 * static_cast<std::size_t>(std::lround(kMeanHalfBits * middle / 2));
  mDelay = static_cast<double>(mFirstWidth + mSecondWidth - 2) / 2;
  mEnvelopePart = static_cast<float>(1 / (kEnvelopeHalfBits * middle));
  if (mMultiply > 1) {
    mFilter = interpolator(mMultiply, kTaps);
  }
  cosines();
  restart(0);
}

void VLLTCHalfBitClock::restart(double place) {
  // Step n stands at mOrigin + n * mDivide / mMultiply, and the first one is 1.
  const double perStep = static_cast<double>(mDivide) / static_cast<double>(mMultiply);
  mOrigin =
      place - perStep +
      (mMultiply > 1 ? -static_cast<double>(kTaps) / 2 : static_cast<double>(mDivide - 1) / 2);
  mDivided = 0;
  mDividedCount = 0;
  mTaps.fill(0);
  mRawStep = 0;
  mRaw.fill(0);
  mRawSums.fill(0);
  mRawSum = 0;
  mStep = 0;
  mSums.fill(0);
  mSmoothSums.fill(0);
  mSum = 0;
  mSmoothSum = 0;
  mLast = 0;
  mEnvelope = 0;
  mIsHigh = false;
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

void VLLTCHalfBitClock::push(float sample) {
  // A false comparison is that of what is not a number.
  const float value = std::fabs(sample) <= kLoudest ? sample : 0.0F;
  if (mMultiply > 1) {
    std::copy(mTaps.begin() + 1, mTaps.end(), mTaps.begin());
    mTaps.back() = value;
    interpolate();
  } else if (mDivide > 1) {
    mDivided += value;
    if (++mDividedCount == mDivide) {
      removeMean(mDivided / static_cast<float>(mDivide));
      mDivided = 0;
      mDividedCount = 0;
    }
  } else {
    removeMean(value);
  }
}

void VLLTCHalfBitClock::interpolate() {
  for (std::size_t part = 0; part < mMultiply; ++part) {
    const float* const filter = mFilter.data() + part * kTaps;
    float value = 0;
    for (std::size_t i = 0; i < kTaps; ++i) {
      value += filter[i] * mTaps[i];
    }
    removeMean(value);
  }
}

// The mean is that of as much signal before the sample as after it, which takes out hum
// too and moves no edge.
void VLLTCHalfBitClock::removeMean(float sample) {
  ++mRawStep;
  const auto at = [this](std::uint64_t back) { return (mRawStep - back) % kRawKept; };
  mRawSum += static_cast<double>(sample);
  mRaw[at(0)] = sample;
  mRawSums[at(0)] = mRawSum;
  const std::uint64_t half = mMeanWidth / 2;
  if (mRawStep > half) {
    const std::uint64_t width = std::min<std::uint64_t>(mMeanWidth, mRawStep);
    mMean = static_cast<float>((mRawSum - mRawSums[at(width)]) / static_cast<double>(width));
    step(mRaw[at(half)] - mMean);
  }
}

void VLLTCHalfBitClock::step(float sample) {
  ++mStep;
  const auto at = [this](std::uint64_t back) { return (mStep - back) % kSumsKept; };
  mSum += static_cast<double>(sample);
  mSums[at(0)] = mSum;
  mSmoothSum += mSum - mSums[at(mFirstWidth)];
  mSmoothSums[at(0)] = mSmoothSum;
  const auto smooth = static_cast<float>((mSmoothSum - mSmoothSums[at(mSecondWidth)]) /
                                         static_cast<double>(mFirstWidth * mSecondWidth));
  mEnvelope += mEnvelopePart * (std::fabs(smooth) + kNoDenormals - mEnvelope);
  if ((smooth > 0) != (mLast > 0)) {
    const double part = static_cast<double>(mLast) / static_cast<double>(mLast - smooth);
    mCrossing = static_cast<double>(mStep) - 1 + part - mDelay;
  }
  mLast = smooth;
  const float threshold = std::max(kHysteresis * mEnvelope, kQuietest);
  if (mIsHigh ? smooth < -threshold : smooth > threshold) {
    mIsHigh = !mIsHigh;
    takeEdge(mCrossing);
  }
  if (mIsLocked && static_cast<double>(mStep) - mDelay > mBoundary + 4.0 * mLength) {
    emit(mBoundary + mLength);
    if (++mUnseen > kMostUnseen) {
      unlock();
    }
  }
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
  const bool isOutlier = std::fabs(error) > std::max(kOutlier, mFar);
  const double move = isOutlier ? 0 : kPhasePart * error * mLength;
  const double each = mLength + move / count;
  for (int i = 0; i < static_cast<int>(count); ++i) {
    emit(mBoundary + each);
  }
  if (!isOutlier) {
    mLength = std::clamp(mLength + kLengthPart * error * mLength / count, mShortest / kBeyond,
                         mLongest * kBeyond);
  }
  return true;
}

// How well the edges lie on a grid: 1 for exactly, about 1/sqrt(kEdges) for random ones.
// Returns 0 early when the first half of the edges does not fit a grid.
double VLLTCHalfBitClock::coherence(double length) const {
  const auto& table = cosines();
  const double perStep = static_cast<double>(kTurn) / length;
  float x = 0;
  float y = 0;
  const auto add = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) {
      const auto angle = static_cast<std::size_t>((mEdges[i] - mEdges[0]) * perStep);
      x += table[angle % kTurn];
      y += table[(angle + kTurn / 4) % kTurn];
    }
    return x * x + y * y;
  };
  constexpr std::size_t kHalf = kEdges / 2;
  constexpr float kLeast = 0.5F * static_cast<float>(kHalf);
  if (add(0, kHalf) < kLeast * kLeast) {
    return 0;
  }
  return static_cast<double>(std::sqrt(add(kHalf, kEdges))) / static_cast<double>(kEdges);
}

void VLLTCHalfBitClock::acquire() {
  double best = 0;
  double length = 0;
  // Half of a grid's length fits as well: the longest that fits is the one.
  for (double each = mLongest; each >= mShortest * 0.999; each /= kCandidateStep) {
    const double value = coherence(each);
    if (value > best * 1.05 || (value > best && each > length * 0.9)) {
      best = value;
      length = each;
    }
  }
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
  const double oldest = static_cast<double>(mStep) - static_cast<double>(kSumsKept) + mLongest;
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

double VLLTCHalfBitClock::sumTo(double place) const {
  // A sample reaches from half a step before its place to half a step after it.
  const double at = place - 0.5;
  const double whole = std::floor(at);
  const auto last = static_cast<std::int64_t>(mStep);
  const std::int64_t index =
      std::clamp(static_cast<std::int64_t>(whole),
                 std::max<std::int64_t>(0, last - static_cast<std::int64_t>(kSumsKept) + 1),
                 std::max<std::int64_t>(0, last - 1));
  const double low = mSums[static_cast<std::size_t>(index) % kSumsKept];
  const double high = mSums[static_cast<std::size_t>(std::min(index + 1, last)) % kSumsKept];
  return low + (at - whole) * (high - low);
}

void VLLTCHalfBitClock::emit(double end) {
  if (mHalfBitCount == kHalfBitsKept) {
    return;
  }
  const double perStep = static_cast<double>(mDivide) / static_cast<double>(mMultiply);
  VLLTCHalfBit& halfBit = mHalfBits[mHalfBitCount++];
  halfBit.level = static_cast<float>((sumTo(end) - sumTo(mBoundary)) / (end - mBoundary));
  halfBit.begin = mOrigin + mBoundary * perStep;
  halfBit.end = mOrigin + end * perStep;
  halfBit.isFirst = mIsFirst;
  mIsFirst = false;
  mBoundary = end;
}

void VLLTCHalfBitClock::flush() {
  const float value = mMean;
  for (std::size_t i = 0; i < (mMultiply > 1 ? kTaps / 2 : 0); ++i) {
    push(value);
  }
  for (std::size_t i = 0; i < mMeanWidth / 2; ++i) {
    removeMean(value);
  }
  while (mIsLocked && mBoundary + kLeastPart * mLength < static_cast<double>(mStep)) {
    emit(mBoundary + mLength);
  }
}

}  // namespace velor
