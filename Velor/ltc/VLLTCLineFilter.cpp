// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCLineFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velor {
namespace {

// With twice as many steps frames have the same places and errors, and cost twice the time.
constexpr double kLeastSteps = 4;  // for each half bit

// Moving averages, as parts of the middle half bit. Together they are shorter than the
// shortest one, so that an edge moves none of its neighbours.
constexpr double kFirstPart = 0.55;
constexpr double kSecondPart = 0.3;

constexpr double kMeanHalfBits = 16;
constexpr float kLoudest = 1e3F;

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

// A false comparison is that of a value that is not a number.
float cleaned(float sample) {
  return std::fabs(sample) <= kLoudest ? sample : 0.0F;
}

}  // namespace

VLLTCLineFilter::VLLTCLineFilter(double halfBit) {
  while (halfBit < kLeastSteps && mMultiply < kMostMultiply) {
    halfBit *= 2;
    mMultiply *= 2;
  }
  mDivide = std::max<std::size_t>(1, static_cast<std::size_t>(halfBit / kLeastSteps));
  halfBit /= static_cast<double>(mDivide);
  mPerStep = static_cast<double>(mDivide) / static_cast<double>(mMultiply);
  const auto widthOf = [halfBit](double part) {
    return std::max<std::size_t>(1, static_cast<std::size_t>(std::lround(part * halfBit)));
  };
  mFirstWidth = widthOf(kFirstPart);
  mSecondWidth = widthOf(kSecondPart);
  mMeanWidth = 2 * widthOf(kMeanHalfBits / 2);
  mDelay = static_cast<double>(mFirstWidth + mSecondWidth - 2) / 2;
  if (mMultiply > 1) {
    mFilter = interpolator(mMultiply, kTaps);
  }
  restart(0);
}

void VLLTCLineFilter::restart(double place) {
  // The first step is 1.
  mOrigin =
      place - mPerStep +
      (mMultiply > 1 ? -static_cast<double>(kTaps) / 2 : static_cast<double>(mDivide - 1) / 2);
  mDivided = 0;
  mDividedCount = 0;
  mTaps.fill(0);
  mRawStep = 0;
  mRaw.fill(0);
  mRawSums.fill(0);
  mRawSum = 0;
  mMean = 0;
  mStep = 0;
  mSums.fill(0);
  mSmoothSums.fill(0);
  mSum = 0;
  mSmoothSum = 0;
}

std::span<const float> VLLTCLineFilter::process(std::span<const float> samples) {
  return filter(mMultiply > 1 ? interpolate(samples) : divide(samples));
}

std::span<const float> VLLTCLineFilter::flush() {
  std::array<float, kTaps / 2> silence{};
  silence.fill(mMean);
  const std::size_t count = mMultiply > 1 ? interpolate(silence) : 0;
  const std::size_t half = mMeanWidth / 2;
  std::fill_n(mBlock.begin() + static_cast<std::ptrdiff_t>(count), half, mMean);
  return filter(count + half);
}

std::span<const float> VLLTCLineFilter::filter(std::size_t count) {
  count = removeMean(count);
  smooth(count);
  return std::span<const float>(mBlock).first(count);
}

std::size_t VLLTCLineFilter::interpolate(std::span<const float> samples) {
  std::array<float, kTaps - 1 + kSamples> input{};
  const auto begin = std::copy(mTaps.begin(), mTaps.end(), input.begin());
  const auto end = std::transform(samples.begin(), samples.end(), begin, cleaned);
  std::copy(end - static_cast<std::ptrdiff_t>(mTaps.size()), end, mTaps.begin());
  std::array<float, kSamples> values{};
  for (std::size_t part = 0; part < mMultiply; ++part) {
    const float* const filter = mFilter.data() + part * kTaps;
    // Both loops have constant lengths, so that compilers use vector instructions.
    for (std::size_t i = 0; i < kSamples; ++i) {
      float value = 0;
      for (std::size_t tap = 0; tap < kTaps; ++tap) {
        value += filter[tap] * input[i + tap];
      }
      values[i] = value;
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
      mBlock[i * mMultiply + part] = values[i];
    }
  }
  return samples.size() * mMultiply;
}

std::size_t VLLTCLineFilter::divide(std::span<const float> samples) {
  std::size_t count = 0;
  for (const float sample : samples) {
    mDivided += cleaned(sample);
    if (++mDividedCount == mDivide) {
      mBlock[count++] = mDivided / static_cast<float>(mDivide);
      mDivided = 0;
      mDividedCount = 0;
    }
  }
  return count;
}

// The mean is that of as much signal before the sample as after it, which takes out hum
// too and moves no edge.
std::size_t VLLTCLineFilter::removeMean(std::size_t count) {
  const std::uint64_t half = mMeanWidth / 2;
  std::size_t done = 0;
  double sum = mRawSum;
  float mean = mMean;
  for (std::size_t i = 0; i < count; ++i) {
    ++mRawStep;
    sum += static_cast<double>(mBlock[i]);
    mRaw[mRawStep % kRawRing] = mBlock[i];
    mRawSums[mRawStep % kRawRing] = sum;
    if (mRawStep > half) {
      const std::uint64_t width = std::min<std::uint64_t>(mMeanWidth, mRawStep);
      mean = static_cast<float>((sum - mRawSums[(mRawStep - width) % kRawRing]) /
                                static_cast<double>(width));
      mBlock[done++] = mRaw[(mRawStep - half) % kRawRing] - mean;
    }
  }
  mRawSum = sum;
  mMean = mean;
  return done;
}

void VLLTCLineFilter::smooth(std::size_t count) {
  const auto widths = static_cast<double>(mFirstWidth * mSecondWidth);
  std::uint64_t step = mStep;
  double sum = mSum;
  double smoothSum = mSmoothSum;
  for (std::size_t i = 0; i < count; ++i) {
    ++step;
    sum += static_cast<double>(mBlock[i]);
    mSums[step % kSumsRing] = sum;
    smoothSum += sum - mSums[(step - mFirstWidth) % kSumsRing];
    mSmoothSums[step % kSmoothRing] = smoothSum;
    mBlock[i] =
        static_cast<float>((smoothSum - mSmoothSums[(step - mSecondWidth) % kSmoothRing]) / widths);
  }
  mStep = step;
  mSum = sum;
  mSmoothSum = smoothSum;
}

double VLLTCLineFilter::sumTo(double place, std::uint64_t last) const {
  // A step reaches from half a step before its place to half a step after it.
  const double at = place - 0.5;
  const double whole = std::floor(at);
  const auto newest = static_cast<std::int64_t>(last);
  const std::int64_t index =
      std::clamp(static_cast<std::int64_t>(whole),
                 std::max<std::int64_t>(0, newest - static_cast<std::int64_t>(kKept) + 1),
                 std::max<std::int64_t>(0, newest - 1));
  const double low = mSums[static_cast<std::size_t>(index) % kSumsRing];
  const double high = mSums[static_cast<std::size_t>(std::min(index + 1, newest)) % kSumsRing];
  return low + (at - whole) * (high - low);
}

}  // namespace velor
