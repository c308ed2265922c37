// SPDX-License-Identifier: MIT
#include "tests/support/LTCSignal.h"

#include <ltc.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>
#include <random>
#include <utility>

#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

namespace {

constexpr double kTail = 0.005;  // s of signal behind the last edge

// A minute ends soon, so that drop formats drop.
SMPTETime firstTime(std::uint32_t type) {
  SMPTETime time;
  time.mType = type;
  ltc_set_time(time, 17, 58, 58, 13);
  return time;
}

// Where the signal changes, and the frames between.
std::vector<double> edgesOf(const LTCSignalMaker& maker, std::vector<LTCSignal::Frame>& frames) {
  std::mt19937 random(maker.seed);
  const std::unique_ptr<ltc_frame, void (*)(ltc_frame*)> encoder(ltc_frame_create(),
                                                                 ltc_frame_destroy);
  const double nominal = frameRateOf(maker.type);
  std::vector<double> edges;
  double place = std::round(maker.silence * maker.sampleRate) + 0.25;
  double mark = 0;
  SMPTETime time = firstTime(maker.type);
  for (std::size_t n = 0; n < maker.frames; ++n) {
    LTCSignal::Frame frame;
    frame.time = time;
    for (std::uint8_t& byte : frame.userBytes) {
      byte = static_cast<std::uint8_t>(random());
    }
    frame.mark = mark;
    frame.begin = place;
    ltc_frame_encode(*encoder, time, frame.userBytes.data());
    std::array<std::uint8_t, kLTCFrameBits> bits{};
    ltc_frame_copy_bits(*encoder, bits.data());
    for (const std::uint8_t bit : bits) {
      const double rate = maker.speed ? maker.speed(place / maker.sampleRate) : nominal;
      const double half = maker.sampleRate / rate / 160.0;
      edges.push_back(place);
      mark = place + half;
      if (bit != 0) {
        edges.push_back(mark);
      }
      place += 2 * half;
    }
    frame.end = place;
    frames.push_back(frame);
    ltc_add_frames(time, 1);
  }
  edges.push_back(place);
  return edges;
}

// Steps of the form of half a cosine.
std::vector<double> waveOf(const std::vector<double>& edges, double width, std::size_t samples) {
  std::vector<double> wave(samples);
  double before = 0;  // silence, up to the first edge
  double after = 1;
  auto from = std::size_t{0};
  for (std::size_t i = 0; i < edges.size(); ++i) {
    const double next = i + 1 < edges.size() ? edges[i + 1] : static_cast<double>(samples) * 2;
    const auto to = std::min(samples, static_cast<std::size_t>(std::ceil((edges[i] + next) / 2)));
    for (; from < to; ++from) {
      const double x = static_cast<double>(from) - edges[i];
      const double part = 2 * std::abs(x) >= width
                              ? (x >= 0 ? 1.0 : 0.0)
                              : 0.5 + 0.5 * std::sin(std::numbers::pi * x / width);
      wave[from] = before + (after - before) * part;
    }
    before = after;
    after = -after;
  }
  return wave;
}

void lowPass(std::vector<double>& wave, double frequency, double sampleRate) {
  // Butterworth, by the bilinear transform.
  const double w = std::tan(std::numbers::pi * frequency / sampleRate);
  const double scale = 1 / (1 + std::numbers::sqrt2 * w + w * w);
  const double b = w * w * scale;
  const double a1 = 2 * (w * w - 1) * scale;
  const double a2 = (1 - std::numbers::sqrt2 * w + w * w) * scale;
  double s1 = 0;
  double s2 = 0;
  for (double& x : wave) {
    const double y = b * x + s1;
    s1 = 2 * b * x - a1 * y + s2;
    s2 = b * x - a2 * y;
    x = y;
  }
}

void highPass(std::vector<double>& wave, double frequency, double sampleRate) {
  const double keep = 1 - std::exp(-2 * std::numbers::pi * frequency / sampleRate);
  double mean = 0;
  for (double& x : wave) {
    mean += keep * (x - mean);
    x -= mean;
  }
}

struct Span {
  std::size_t begin;
  std::size_t end;
};

// One in each second, anywhere in it.
std::vector<Span> spansOf(double length, const LTCSignalMaker& maker, std::size_t samples) {
  std::mt19937 random(maker.seed + 1);
  std::vector<Span> spans;
  const auto count = static_cast<std::size_t>(length * maker.sampleRate);
  const auto second = static_cast<std::size_t>(maker.sampleRate);
  for (std::size_t i = 0; count > 0 && i + second <= samples; i += second) {
    const std::size_t begin = i + random() % (second - count);
    spans.push_back({begin, begin + count});
  }
  return spans;
}

void damage(std::vector<LTCSignal::Frame>& frames, const std::vector<Span>& spans) {
  for (LTCSignal::Frame& frame : frames) {
    for (const Span& span : spans) {
      if (frame.begin < static_cast<double>(span.end) &&
          frame.end > static_cast<double>(span.begin)) {
        frame.whole = false;
      }
    }
  }
}

// From the last one on, so that the places of the others stay.
void cutOut(LTCSignal& signal, const std::vector<Span>& spans, bool timesSkip) {
  for (auto span = spans.rbegin(); span != spans.rend(); ++span) {
    const auto at = signal.samples.begin();
    signal.samples.erase(at + static_cast<std::ptrdiff_t>(span->begin),
                         at + static_cast<std::ptrdiff_t>(span->end));
    const std::size_t length = span->end - span->begin;
    if (timesSkip) {
      for (LTCSignal::Loss& loss : signal.losses) {
        loss.index -= length;
      }
      signal.losses.push_back({span->begin, length});
      continue;
    }
    const auto moved = [&span, length](double place) {
      const double begin = static_cast<double>(span->begin);
      return place < begin ? place : std::max(begin, place - static_cast<double>(length));
    };
    for (LTCSignal::Frame& frame : signal.frames) {
      frame.mark = moved(frame.mark);
      frame.begin = moved(frame.begin);
      frame.end = moved(frame.end);
    }
  }
  std::reverse(signal.losses.begin(), signal.losses.end());
}

}  // namespace

LTCSignal LTCSignalMaker::make() const {
  LTCSignal signal;
  signal.sampleRate = sampleRate;
  const std::vector<double> edges = edgesOf(*this, signal.frames);
  const auto count = static_cast<std::size_t>(edges.back() + kTail * sampleRate);
  // Of half a cosine, 10 to 90 % are this part.
  constexpr double kRisePart = 0.59033;
  std::vector<double> wave = waveOf(edges, riseTime / kRisePart * sampleRate, count);

  const std::vector<Span> dropOuts = spansOf(dropOut, *this, count);
  for (const Span& span : dropOuts) {
    const auto at = wave.begin();
    std::fill(at + static_cast<std::ptrdiff_t>(span.begin),
              at + static_cast<std::ptrdiff_t>(span.end), 0.0);
  }
  if (lowPass > 0) {
    velor::lowPass(wave, lowPass, sampleRate);
  }
  if (highPass > 0) {
    velor::highPass(wave, highPass, sampleRate);
  }

  std::mt19937 random(seed + 2);
  std::normal_distribution<double> noise(0.0, std::pow(10.0, -signalToNoise / 20));
  const double steps = std::exp2(static_cast<int>(bits) - 1);
  for (double value : wave) {
    const double time = static_cast<double>(signal.samples.size()) / sampleRate;
    value += offset + hum * std::sin(2 * std::numbers::pi * 50 * time) +
             (signalToNoise > 0 ? noise(random) : 0.0);
    value *= inverted ? -level : level;
    value = clip > 0 ? std::clamp(value, -clip, clip) : value;
    value = bits > 0 ? std::round(value * steps) / steps : value;
    signal.samples.push_back(static_cast<float>(value));
  }

  const std::vector<Span> splices = spansOf(splice, *this, count);
  const std::vector<Span> xruns = spansOf(xrun, *this, count);
  damage(signal.frames, dropOuts);
  damage(signal.frames, splices);
  damage(signal.frames, xruns);
  cutOut(signal, splices, false);
  cutOut(signal, xruns, true);
  return signal;
}

LTCSignal reversed(LTCSignal signal) {
  const double last = static_cast<double>(signal.samples.size()) - 1;
  std::reverse(signal.samples.begin(), signal.samples.end());
  std::reverse(signal.frames.begin(), signal.frames.end());
  for (LTCSignal::Frame& frame : signal.frames) {
    frame.begin = last - std::exchange(frame.end, last - frame.begin);
  }
  return signal;
}

LTCSignal signalByLibltc(double sampleRate, std::uint32_t type, std::size_t frames, bool inverted) {
  LTCSignal signal;
  signal.sampleRate = sampleRate;
  const std::unique_ptr<LTCEncoder, void (*)(LTCEncoder*)> encoder(
      ltc_encoder_create(sampleRate, frameRateOf(type),
                         type == kSMPTETimeType25 ? LTC_TV_625_50 : LTC_TV_525_60, LTC_USE_DATE),
      ltc_encoder_free);
  SMPTETime time = firstTime(type);
  double mark = 0;
  for (std::size_t n = 0; n < frames; ++n) {
    SMPTETimecode digits{};
    digits.hours = static_cast<unsigned char>(time.mHours);
    digits.mins = static_cast<unsigned char>(time.mMinutes);
    digits.secs = static_cast<unsigned char>(time.mSeconds);
    digits.frame = static_cast<unsigned char>(time.mFrames);
    ltc_encoder_set_timecode(encoder.get(), &digits);
    LTCFrame bits;
    ltc_encoder_get_frame(encoder.get(), &bits);
    bits.dfbit = ltc_is_drop(time) ? 1 : 0;
    ltc_encoder_set_frame(encoder.get(), &bits);
    const auto userBits = static_cast<std::uint32_t>(0x9E3779B9U * (n + 1));
    ltc_encoder_set_user_bits(encoder.get(), userBits);

    LTCSignal::Frame frame;
    frame.time = time;
    for (unsigned i = 0; i < 4; ++i) {
      frame.userBytes[i] = static_cast<std::uint8_t>(userBits >> 8 * i);
    }
    frame.mark = mark;
    // Frames follow each other at the exact rate; samples are given out as they fill.
    const double length = sampleRate / frameRateOf(type);
    frame.begin = static_cast<double>(n) * length;
    frame.end = frame.begin + length;
    mark = frame.end - length / 160;
    signal.frames.push_back(frame);

    ltc_encoder_encode_frame(encoder.get());
    if (n + 1 == frames) {
      ltc_encoder_end_encode(encoder.get());
    }
    ltcsnd_sample_t* bytes = nullptr;
    const int count = ltc_encoder_get_bufferptr(encoder.get(), &bytes, 1);
    for (int i = 0; i < count; ++i) {
      const float value = static_cast<float>(bytes[i] - 128) / 128.0F;
      signal.samples.push_back(inverted ? -value : value);
    }
    ltc_add_frames(time, 1);
  }
  return signal;
}

}  // namespace velor
