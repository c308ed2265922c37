// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCAnalysis.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Velor/ltc/VLLTCRun.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr double kKept = 4;        // s, longer than any frame waits for the next one
constexpr double kAdjacent = 0.1;  // of a frame
constexpr double kLeastGap = 0.5;  // frames
constexpr double kGapError = 0.3;  // frames
constexpr double kGapErrorPart = 0.02;
constexpr double kClockError = 50;        // ppm, standard deviation of clocks of audio devices
constexpr double kFarFromFormats = 5000;  // ppm
constexpr double kMostRatio = 120;        // dB
// Frames begin to be lost when a half bit, taken as the mean of its samples, is less than
// this above its noise. At 48 kHz and 25 frames per second that is noise 3 dB below the
// signal in the whole band.
constexpr double kLimit = 13.8;  // dB
constexpr double kPerMillion = 1e6;
constexpr double kHalfBits = 2.0 * static_cast<double>(kLTCFrameBits);

double decibels(double ratio) {
  return 20 * std::log10(std::max(ratio, 1e-12));
}

SMPTETime timeOf(const VLLTCBits& bits, std::uint32_t type) {
  const bool isDrop = bits.field(kLTCDropFlag) != 0;
  return VLLTCTimeOf(bits, isDrop ? kSMPTETimeType2997Drop : type);
}

bool isNext(const VLLTCBits& before, const VLLTCBits& bits, std::uint32_t type) {
  SMPTETime time = VLLTCTimeOf(bits.isReverse ? bits : before, type);
  ltc_add_frames(time, 1);
  return ltc_same_time(time, VLLTCTimeOf(bits.isReverse ? before : bits, type));
}

}  // namespace

VLLTCAnalysis::VLLTCAnalysis(double sampleRate)
    : mSampleRate(sampleRate),
      mDecoder(sampleRate, [this](const VLLTCBits& bits) { take(bits); }),
      mMeter(sampleRate) {}

void VLLTCAnalysis::process(std::span<const float> samples) {
  for (const float sample : samples) {
    if (std::isfinite(sample)) {
      mPeak = std::max(mPeak, std::fabs(sample));
    }
  }
  mKept.insert(mKept.end(), samples.begin(), samples.end());
  mPlace += samples.size();
  mDecoder.process(samples);
  const auto most = static_cast<std::size_t>(kKept * mSampleRate);
  if (mKept.size() > 2 * most) {
    const std::size_t count = mKept.size() - most;
    mKept.erase(mKept.begin(), mKept.begin() + static_cast<std::ptrdiff_t>(count));
    mKeptFrom += count;
  }
}

void VLLTCAnalysis::finish() {
  mDecoder.finish();
  mMeter.close();
}

void VLLTCAnalysis::take(const VLLTCBits& bits) {
  Frame frame{bits, bits.begin, bits.end - bits.begin, mLast.type};
  const double rate = mSampleRate / frame.length;
  if (ltc_is_valid_frame_rate(rate)) {
    mNominalRate = rate;
  }
  SMPTETime time = VLLTCTimeOf(bits, frame.type);
  const auto drop = static_cast<std::uint8_t>(bits.field(kLTCDropFlag));
  if (ltc_detect_frame_format(time, drop, mNominalRate) == 0) {
    frame.type = time.mType;
  }
  const bool isAdjacent = mFrames > 0 &&
                          std::fabs(bits.begin - mLast.bits.end) < kAdjacent * frame.length &&
                          bits.isReverse == mLast.bits.isReverse;
  if (!isAdjacent) {
    mMeter.close();
    mPlaces.startRow();
    mNumber = 0;
  }
  frame.begin = mMeter.take(bits, mKept, mKeptFrom);
  if (mFrames > 0) {
    compare(frame);
  } else {
    mFirst = bits;
  }
  takeUserBits(bits);
  mPlaces.add(mNumber++, frame.begin);
  mHighest = std::max<std::int32_t>(mHighest, time.mFrames);
  ++mFrames;
  mReverseFrames += bits.isReverse ? 1 : 0;
  mLast = frame;
}

void VLLTCAnalysis::compare(const Frame& frame) {
  using Kind = VLLTCReport::Kind;
  const VLLTCBits& bits = frame.bits;
  const VLLTCBits& before = mLast.bits;
  if (bits.isReverse != before.isReverse) {
    add(Kind::turn, bits);
    return;
  }
  const double gap = (bits.begin - before.end) / frame.length;
  const bool isNextOne = isNext(before, bits, frame.type) || isNext(before, bits, mLast.type);
  if (std::fabs(gap) < kAdjacent && isNextOne) {
    const SMPTETime time = VLLTCTimeOf(bits.isReverse ? bits : before, frame.type);
    if (VLLTCTimeOf(bits.isReverse ? before : bits, frame.type).mFrames < time.mFrames) {
      mLastOfSecond = std::max<std::int32_t>(mLastOfSecond, time.mFrames);
    }
    return;
  }
  const std::int32_t day = 24 * 3600 * ltc_frames_per_second(frame.type);
  std::int32_t step = ltc_frame_number_from_smptetime(timeOf(bits, frame.type)) -
                      ltc_frame_number_from_smptetime(timeOf(before, frame.type));
  step = bits.isReverse ? -step : step;
  step += step < -day / 2 ? day : 0;
  const double expected = gap + 1;
  if (gap < kLeastGap && step == 0) {
    add(Kind::repeat, bits);
  } else if (gap >= kLeastGap && std::fabs(static_cast<double>(step) - expected) <
                                     kGapError + kGapErrorPart * expected) {
    add(Kind::dropOut, bits);
  } else {
    add(Kind::splice, bits);
  }
}

void VLLTCAnalysis::add(VLLTCReport::Kind kind, const VLLTCBits& behind) {
  ++mCounts[static_cast<std::size_t>(kind)];
  if (mEvents.size() < VLLTCReport::kListed) {
    mEvents.push_back({kind, mLast.bits, behind});
  }
}

void VLLTCAnalysis::takeUserBits(const VLLTCBits& bits) {
  const bool isChange = mFrames > 0 && bits.userBits() != mLast.bits.userBits();
  mUserBitChanges += isChange ? 1 : 0;
  if ((isChange || mFrames == 0) && mUserBits.size() < VLLTCReport::kListed) {
    mUserBits.push_back(bits);
  }
}

VLLTCReport VLLTCAnalysis::report() const {
  VLLTCReport report;
  report.sampleRate = mSampleRate;
  report.duration = static_cast<double>(mPlace) / mSampleRate;
  report.peak = static_cast<double>(mPeak);
  report.frames = mFrames;
  report.reverseFrames = mReverseFrames;
  report.windows = mMeter.windows();
  report.counts = mCounts;
  report.userBitChanges = mUserBitChanges;
  if (mFrames == 0) {
    return report;
  }
  measureRate(report);
  chooseFormat(report);
  measureSignal(report);
  report.begin = std::max(0.0, mFirst.begin) / mSampleRate;
  report.first = timeOf(mFirst, report.format);
  report.last = timeOf(mLast.bits, report.format);
  for (const Event& event : mEvents) {
    report.events.push_back({event.kind, event.before.end / mSampleRate,
                             std::max(0.0, event.behind.begin - event.before.end) / mSampleRate,
                             timeOf(event.before, report.format),
                             timeOf(event.behind, report.format)});
  }
  for (const VLLTCBits& bits : mUserBits) {
    report.userBits.push_back(
        {std::max(0.0, bits.begin) / mSampleRate, timeOf(bits, report.format), bits.userBits()});
  }
  return report;
}

void VLLTCAnalysis::measureRate(VLLTCReport& report) const {
  if (!mPlaces.hasLength()) {
    report.rate = mSampleRate / mLast.length;
    report.uncertainty = kFarFromFormats;
    return;
  }
  report.rate = mSampleRate / mPlaces.length();
  report.uncertainty = mPlaces.hasScatter() ? mPlaces.uncertainty() / mPlaces.length() * kPerMillion
                                            : kFarFromFormats;
}

void VLLTCAnalysis::chooseFormat(VLLTCReport& report) const {
  const bool isDrop = mFirst.field(kLTCDropFlag) != 0;
  const auto deviation = [&report](std::uint32_t type) {
    return (report.rate * ltc_seconds_per_frame(type) - 1) * kPerMillion;
  };
  double best = -1;
  constexpr std::array<std::uint32_t, 7> kTypes = {
      kSMPTETimeType2398, kSMPTETimeType24,       kSMPTETimeType25,    kSMPTETimeType2997,
      kSMPTETimeType30,   kSMPTETimeType2997Drop, kSMPTETimeType30Drop};
  for (const std::uint32_t type : kTypes) {
    const std::int32_t labels = ltc_frames_per_second(type);
    const bool fits = mLastOfSecond >= 0 ? labels == mLastOfSecond + 1 : labels > mHighest;
    if (fits && ltc_type_is_drop(type) == isDrop &&
        (best < 0 || std::fabs(deviation(type)) < best)) {
      best = std::fabs(deviation(type));
      report.format = type;
      report.deviation = deviation(type);
    }
  }
  double other = -1;
  for (const std::uint32_t type : kTypes) {
    if (ltc_seconds_per_frame(type) != ltc_seconds_per_frame(report.format) &&
        !ltc_type_is_drop(type) && (other < 0 || std::fabs(deviation(type)) < other)) {
      other = std::fabs(deviation(type));
      report.other = type;
    }
  }
  if (best >= 0 && best < kFarFromFormats) {
    report.sigmas = (other - best) / std::hypot(kClockError, report.uncertainty);
  }
}

void VLLTCAnalysis::measureSignal(VLLTCReport& report) const {
  double seconds = 0, noise = 0, jitter = 0, edges = 0, hum50 = 0, hum60 = 0;
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  report.lowestLevel = report.lowest = 1e12;
  report.highest = -1e12;
  for (const VLLTCReport::Window& window : report.windows) {
    const double weight = window.length;
    seconds += weight;
    report.level += weight * window.level;
    report.offset += weight * window.offset;
    report.bit += weight * window.bit;
    noise += weight * window.noise * window.noise;
    hum50 += weight * window.hum50;
    hum60 += weight * window.hum60;
    jitter += window.jitter * window.jitter * static_cast<double>(window.edges);
    edges += static_cast<double>(window.edges);
    report.jitterPeak = std::max(report.jitterPeak, window.jitterPeak);
    report.missingEdges += window.missingEdges;
    report.lowestLevel = std::min(report.lowestLevel, window.level);
    report.highestLevel = std::max(report.highestLevel, window.level);
    if (window.frames < 2) {
      continue;
    }
    const double deviation = (window.rate * ltc_seconds_per_frame(report.format) - 1) * kPerMillion;
    report.lowest = std::min(report.lowest, deviation);
    report.highest = std::max(report.highest, deviation);
    const double minutes = (window.begin - report.windows.front().begin) / 60;
    n += 1;
    sx += minutes;
    sy += deviation;
    sxx += minutes * minutes;
    sxy += minutes * deviation;
  }
  if (!(seconds > 0)) {
    return;
  }
  const double spread = n * sxx - sx * sx;
  report.drift = n > 2 && spread > 0 ? (n * sxy - sx * sy) / spread : 0;
  if (n == 0) {
    report.lowest = report.highest = report.deviation;
  }
  report.level /= seconds;
  report.offset /= seconds;
  report.bit /= seconds;
  report.noise = std::sqrt(noise / seconds);
  report.hum = std::sqrt(std::max(hum50, hum60) / seconds);
  report.humFrequency = hum60 > hum50 ? 60 : 50;
  report.jitter = edges > 0 ? std::sqrt(jitter / edges) : 0;
  report.riseTime = mMeter.riseTime();
  report.signalToNoise =
      report.noise > 0 ? std::min(kMostRatio, decibels(report.level / report.noise)) : kMostRatio;
  const double samples = mSampleRate / report.rate / kHalfBits;
  report.margin = report.signalToNoise + 10 * std::log10(std::max(samples, 1.0)) - kLimit;
}

}  // namespace velor
