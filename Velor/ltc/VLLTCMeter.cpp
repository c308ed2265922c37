// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCMeter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace velor {
namespace {

constexpr double kHalfBitCount = 2.0 * static_cast<double>(kLTCFrameBits);
constexpr double kWindow = 0.25;  // s
constexpr std::uint64_t kWindowFrames = 4;
constexpr double kNear = 0.45;  // half bits from the place of an edge
constexpr std::size_t kLeastEdges = 60;
constexpr double kPlateau = 0.38;  // half bits from an edge on
constexpr double kRise = 0.8;      // of the plateau: 10 and 90 % of the step

}  // namespace

float VLLTCMeter::Signal::at(std::int64_t place) const {
  const auto index = std::clamp<std::int64_t>(place - static_cast<std::int64_t>(from), 0,
                                              static_cast<std::int64_t>(samples.size()) - 1);
  const float value = samples[static_cast<std::size_t>(index)];
  return std::isfinite(value) ? value : 0.0F;
}

double VLLTCMeter::take(const VLLTCBits& bits, std::span<const float> samples, std::uint64_t from) {
  const Signal signal{samples, static_cast<double>(from)};
  if (samples.empty()) {
    return bits.begin;
  }
  findEdges(bits);
  takeLevels(bits, signal);
  mGridBegin = bits.begin;
  mGridEnd = bits.end;
  takeJitter(bits, signal);
  if (mWindow.frames == 0) {
    mFirst = mGridBegin;
  }
  mEnd = mGridEnd;
  mBegins.add(static_cast<double>(mWindow.frames), mGridBegin);
  if (++mWindow.frames >= kWindowFrames && mEnd - mFirst >= kWindow * mSampleRate) {
    close();
  }
  return mGridBegin;
}

// Fills the edges in the order of time; in reverse the last bit comes first.
void VLLTCMeter::findEdges(const VLLTCBits& bits) {
  float sign = -1;
  for (std::size_t i = 0; i < kLTCFrameBits; ++i) {
    const std::size_t number = bits.isReverse ? kLTCFrameBits - 1 - i : i;
    const std::size_t sync = number - (kLTCFrameBits - kLTCSyncBits);
    const bool isOne = number < kLTCFrameBits - kLTCSyncBits
                           ? (bits.word >> number & 1U) != 0
                           : (kLTCSyncWord >> (kLTCSyncBits - 1 - sync) & 1U) != 0;
    mIsEdge[2 * i] = true;
    mIsEdge[2 * i + 1] = isOne;
    sign = -sign;
    mSigns[2 * i] = sign;
    sign = isOne ? -sign : sign;
    mSigns[2 * i + 1] = sign;
  }
  mIsEdge[kHalfBits] = true;
}

void VLLTCMeter::takeLevels(const VLLTCBits& bits, const Signal& signal) {
  const double half = (bits.end - bits.begin) / kHalfBitCount;
  const std::size_t before = mSamples.size();
  std::array<double, 2> sums{};
  std::array<double, 2> counts{};
  for (std::size_t i = 0; i < kHalfBits; ++i) {
    const double begin = bits.begin + (static_cast<double>(i) + 0.25) * half;
    const double end = begin + 0.5 * half;
    const std::size_t isHigh = mSigns[i] > 0 ? 1 : 0;
    const std::size_t kind =
        (mIsEdge[i] ? 1U : 0U) | (mIsEdge[i + 1] ? 2U : 0U) | (i == 0 || mIsEdge[i - 1] ? 4U : 0U);
    mHalfBits.push_back((begin + end) / 2);
    for (auto place = static_cast<std::int64_t>(std::ceil(begin)); static_cast<double>(place) < end;
         ++place) {
      const float value = signal.at(place);
      const auto part = std::min(
          kParts - 1, static_cast<std::size_t>((static_cast<double>(place) - begin) /
                                               (end - begin) * static_cast<double>(kParts)));
      sums[isHigh] += static_cast<double>(value);
      counts[isHigh] += 1;
      mSamples.push_back({value,
                          static_cast<std::uint8_t>(kind * kParts + part + isHigh * 8 * kParts),
                          static_cast<std::uint32_t>(mHalfBits.size() - 1)});
    }
  }
  const double high = counts[1] > 0 ? sums[1] / counts[1] : 0;
  const double low = counts[0] > 0 ? sums[0] / counts[0] : 0;
  mCentre = (high + low) / 2;
  mLevel = std::fabs(high - low) / 2;
  if (high < low) {
    std::for_each(mSigns.begin(), mSigns.end(), [](float& sign) { sign = -sign; });
    constexpr std::uint8_t kOther = 8 * kParts;
    for (std::size_t i = before; i < mSamples.size(); ++i) {
      mSamples[i].kind = static_cast<std::uint8_t>(mSamples[i].kind ^ kOther);
    }
  }
  mWindow.level += mLevel;
  mWindow.offset += mCentre;
  mWindow.bit += 2 * half / mSampleRate;
}

// Fits a line through the edges, and measures how far each is from it.
void VLLTCMeter::takeJitter(const VLLTCBits& bits, const Signal& signal) {
  const double half = (bits.end - bits.begin) / kHalfBitCount;
  std::array<double, kHalfBits> places{};
  std::array<double, kHalfBits> numbers{};
  std::size_t count = 0;
  for (std::size_t i = 0; i < kHalfBits; ++i) {
    if (!mIsEdge[i]) {
      continue;
    }
    const double wanted = bits.begin + static_cast<double>(i) * half;
    double best = kNear * half;
    double found = 0;
    bool isFound = false;
    const auto last = static_cast<std::int64_t>(std::floor(wanted + best));
    for (auto n = static_cast<std::int64_t>(std::ceil(wanted - best)) - 1; n <= last; ++n) {
      const double a =
          (static_cast<double>(signal.at(n)) - mCentre) * static_cast<double>(mSigns[i]);
      const double b =
          (static_cast<double>(signal.at(n + 1)) - mCentre) * static_cast<double>(mSigns[i]);
      if (a < 0 && b >= 0) {
        const double place = static_cast<double>(n) + a / (a - b);
        if (std::fabs(place - wanted) < best) {
          best = std::fabs(place - wanted);
          found = place;
          isFound = true;
        }
      }
    }
    // A crossing cannot be seen before the first sample.
    if (isFound && signal.from <= found) {
      places[count] = found - bits.begin;
      numbers[count++] = static_cast<double>(i);
    } else if (wanted - half > signal.from) {
      ++mWindow.missingEdges;
    }
  }
  if (count < kLeastEdges) {
    return;
  }
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::size_t i = 0; i < count; ++i) {
    sx += numbers[i];
    sy += places[i];
    sxx += numbers[i] * numbers[i];
    sxy += numbers[i] * places[i];
  }
  const auto n = static_cast<double>(count);
  const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  const double offset = (sy - slope * sx) / n;
  for (std::size_t i = 0; i < count; ++i) {
    const double away = (places[i] - offset - slope * numbers[i]) / mSampleRate;
    mSquares += away * away * n / (n - 2);
    mWindow.jitterPeak = std::max(mWindow.jitterPeak, std::fabs(away));
  }
  mWindow.edges += count;
  takeShape(bits.begin + offset, slope, signal);
  mGridBegin = bits.begin + offset;
  mGridEnd = mGridBegin + slope * kHalfBitCount;
}

void VLLTCMeter::takeShape(double begin, double half, const Signal& signal) {
  if (!(mLevel > 0)) {
    return;
  }
  for (std::size_t i = 1; i < kHalfBits; ++i) {
    if (!mIsEdge[i]) {
      continue;
    }
    const double place = begin + static_cast<double>(i) * half;
    const auto last = static_cast<std::int64_t>(std::floor(place + half / 2));
    for (auto n = static_cast<std::int64_t>(std::ceil(place - half / 2)); n <= last; ++n) {
      const double x = (static_cast<double>(n) - place) / half + 0.5;
      const auto step = std::min(
          kSteps - 1, static_cast<std::size_t>(std::max(0.0, x) * static_cast<double>(kSteps)));
      mShape[step] +=
          (static_cast<double>(signal.at(n)) - mCentre) / mLevel * static_cast<double>(mSigns[i]);
      ++mShapeCounts[step];
    }
  }
  mShapeSeconds += half / mSampleRate;
  ++mShapes;
}

double VLLTCMeter::riseTime() const {
  if (mShapes == 0) {
    return 0;
  }
  // A step without a sample takes the value of the step before it.
  std::array<double, kSteps> shape{};
  double value = -1;
  for (std::size_t i = 0; i < kSteps; ++i) {
    value = mShapeCounts[i] > 0 ? mShape[i] / static_cast<double>(mShapeCounts[i]) : value;
    shape[i] = value;
  }
  double plateau = 0;
  double count = 0;
  for (std::size_t i = 0; i < kSteps; ++i) {
    const double x = (static_cast<double>(i) + 0.5) / static_cast<double>(kSteps) - 0.5;
    if (std::fabs(x) > kPlateau) {
      plateau += std::fabs(shape[i]);
      count += 1;
    }
  }
  const double level = kRise * plateau / count;
  const auto crossing = [&](double wanted) {
    for (std::size_t i = 1; i < kSteps; ++i) {
      if (shape[i - 1] < wanted && shape[i] >= wanted) {
        return static_cast<double>(i) - (shape[i] - wanted) / (shape[i] - shape[i - 1]);
      }
    }
    return 0.0;
  };
  const double half = mShapeSeconds / static_cast<double>(mShapes);
  return std::max(0.0, crossing(level) - crossing(-level)) / static_cast<double>(kSteps) * half;
}

void VLLTCMeter::close() {
  if (mWindow.frames == 0) {
    return;
  }
  const auto frames = static_cast<double>(mWindow.frames);
  mWindow.begin = mFirst / mSampleRate;
  mWindow.length = (mEnd - mFirst) / mSampleRate;
  mWindow.rate = mBegins.hasLength() ? mSampleRate / mBegins.length() : 1 / mWindow.length;
  mWindow.level /= frames;
  mWindow.offset /= frames;
  mWindow.bit /= frames;
  mWindow.jitter = mWindow.edges > 0 ? std::sqrt(mSquares / static_cast<double>(mWindow.edges)) : 0;
  std::array<double, kClasses> sums{};
  std::array<double, kClasses> counts{};
  for (const Sample& sample : mSamples) {
    sums[sample.kind] += static_cast<double>(sample.value);
    counts[sample.kind] += 1;
  }
  std::vector<double> residue;
  residue.reserve(mSamples.size());
  for (const Sample& sample : mSamples) {
    residue.push_back(static_cast<double>(sample.value) - sums[sample.kind] / counts[sample.kind]);
  }
  measureHum(residue, mWindow);
  double squares = 0;
  for (const double each : residue) {
    squares += each * each;
  }
  const auto means = static_cast<double>(
      std::count_if(counts.begin(), counts.end(), [](double count) { return count > 0; }));
  const double free = static_cast<double>(residue.size()) - means;
  mWindow.noise = free > 0 ? std::sqrt(squares / free) : 0;
  mWindows.push_back(mWindow);
  mWindow = {};
  mBegins = {};
  mSquares = 0;
  mSamples.clear();
  mHalfBits.clear();
}

// Measures hum in the residue and subtracts it there. Hum is slow beside half bits, so that the
// mean of each half bit is enough. Noise alone gives a fit some power, which is subtracted.
void VLLTCMeter::measureHum(std::vector<double>& residue, VLLTCReport::Window& window) const {
  struct Mean {
    double angle = 0;  // at 1 Hz
    double value = 0;
    double count = 0;
  };
  std::vector<Mean> means(mHalfBits.size());
  for (std::size_t i = 0; i < residue.size(); ++i) {
    means[mSamples[i].halfBit].value += residue[i];
    means[mSamples[i].halfBit].count += 1;
  }
  double n = 0;
  double squares = 0;
  for (std::size_t i = 0; i < means.size(); ++i) {
    means[i].angle = 2 * std::numbers::pi * (mHalfBits[i] - mFirst) / mSampleRate;
    if (means[i].count > 0) {
      means[i].value /= means[i].count;
      n += 1;
      squares += means[i].value * means[i].value;
    }
  }
  if (n < static_cast<double>(kHalfBits)) {
    return;
  }
  struct Tone {
    double frequency, x, y, power;
  };
  std::array<Tone, 6> tones = {{{50, 0, 0, 0},
                                {100, 0, 0, 0},
                                {150, 0, 0, 0},
                                {60, 0, 0, 0},
                                {120, 0, 0, 0},
                                {180, 0, 0, 0}}};
  for (Tone& tone : tones) {
    for (const Mean& mean : means) {
      tone.x += 2 / n * mean.value * std::cos(tone.frequency * mean.angle);
      tone.y += 2 / n * mean.value * std::sin(tone.frequency * mean.angle);
    }
    tone.power = std::max(0.0, tone.x * tone.x + tone.y * tone.y - 4 * squares / n / n);
  }
  window.hum50 = tones[0].power + tones[1].power + tones[2].power;
  window.hum60 = tones[3].power + tones[4].power + tones[5].power;
  window.hum = std::sqrt(std::max(window.hum50, window.hum60));
  const std::size_t first = window.hum50 >= window.hum60 ? 0 : 3;
  for (Mean& mean : means) {
    mean.value = 0;
    for (std::size_t k = first; k < first + 3; ++k) {
      mean.value += tones[k].power > 0 ? tones[k].x * std::cos(tones[k].frequency * mean.angle) +
                                             tones[k].y * std::sin(tones[k].frequency * mean.angle)
                                       : 0;
    }
  }
  for (std::size_t i = 0; i < residue.size(); ++i) {
    residue[i] -= means[mSamples[i].halfBit].value;
  }
}

}  // namespace velor
