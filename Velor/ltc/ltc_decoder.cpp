// SPDX-License-Identifier: MIT
#include "Velor/ltc/ltc_decoder.h"

#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <limits>
#include <mutex>
#include <new>

#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

namespace {

constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

// The middle of the rates that are read, 23 to 31: what is looked for when a signal
// has gone. Two thirds of its bit lie between the half and the whole bit of them all.
constexpr double kSearchRate = 27.5;

// How far the rate may leave that of the classifier, as a part of it.
constexpr double kHysteresis = 0.01;

constexpr double kNewLengthWeight = 0.1;

// A frame takes 43 ms at most, so that without one for a 20th of a second there is none.
constexpr double kStallsPerSecond = 20.0;

struct Consumer {
  LTCDecoderCallback callback = nullptr;
  void* refCon = nullptr;
};

}  // namespace

struct ltc_decoder {
  // Constant since ltc_decoder_init.
  double sampleRate = 0;
  std::uint64_t hostTicksPerSample = 0;
  std::uint64_t stallLength = 0;  // samples
  ltc_frame* frame = nullptr;

  // Other threads set these. The processing thread only ever tries the lock.
  std::mutex lock;
  Consumer consumer;
  std::atomic<bool> consumerChanged{false};  // set under the lock

  // The processing thread's own.
  struct {
    std::uint64_t lastSign = 0;  // of the sample before, 1 for negative
    std::uint64_t lastEdgeSample = 0;
    std::uint64_t lastEdgeHostTime = 0;
    float samplesPerBit = 0;
    bool halfBitSeen = false;
    double bitClockRate = 0;               // frames per second that samplesPerBit is for
    std::uint64_t lastFrameSample = 0;     // where the last frame ended; 0 for none
    std::uint64_t lastGoodSample = 0;      // where the last one of a plausible rate ended
    double averageFrameLength = kUnknown;  // samples
    SMPTETime time;                        // keeps format and counter between frames
    std::array<std::uint8_t, kLTCUserBytes> userBits{};
    Consumer consumer;
  } rt;
};

namespace {

// Sample times are whole numbers. A negative one counts up to 0 by wrapping, like the
// numbers of the samples after it. A value that is not the number of a sample counts as 0.
std::uint64_t sampleNumberOf(double sampleTime) noexcept {
  constexpr double kLimit = 0x1p63;
  return sampleTime >= -kLimit && sampleTime < kLimit
             ? static_cast<std::uint64_t>(static_cast<std::int64_t>(sampleTime))
             : 0;
}

bool isRate(double rate) noexcept {
  return std::isnormal(rate) && rate > 0;
}

void tuneTo(ltc_decoder& decoder, double rate) noexcept {
  decoder.rt.samplesPerBit =
      static_cast<float>(decoder.sampleRate / rate / static_cast<double>(kLTCFrameBits));
  decoder.rt.bitClockRate = rate;
}

// The sign bit: of -0.0 and NaN too.
std::uint64_t signOf(float sample) noexcept {
  return std::bit_cast<std::uint32_t>(sample) >> 31U;
}

void takeConsumer(ltc_decoder& decoder) noexcept {
  if (decoder.consumerChanged.load(std::memory_order_relaxed)) {
    const std::unique_lock lock(decoder.lock, std::try_to_lock);
    if (lock.owns_lock()) {
      decoder.rt.consumer = decoder.consumer;
      decoder.rt.averageFrameLength = kUnknown;
      decoder.consumerChanged.store(false, std::memory_order_relaxed);
    }
  }
}

// `hostTime` is that of the frame, as the framer gave it back.
void takeFrame(ltc_decoder& decoder, std::uint64_t sample, std::uint64_t hostTime) noexcept {
  auto& rt = decoder.rt;
  takeConsumer(decoder);
  std::uint8_t drop = 0;
  if (ltc_frame_decode(*decoder.frame, rt.time, rt.userBits.data(), drop) != 0) {
    ltc_frame_reset(decoder.frame);
    return;
  }
  const std::uint64_t begin = rt.lastFrameSample;
  rt.lastFrameSample = sample;
  if (begin == 0) {
    return;
  }
  auto length = static_cast<double>(sample - begin);
  if (std::isnormal(rt.averageFrameLength)) {
    length = kNewLengthWeight * length + (1.0 - kNewLengthWeight) * rt.averageFrameLength;
  }
  rt.averageFrameLength = length;
  const double fps = std::round(decoder.sampleRate * 1000.0 / length) / 1000.0;
  if (!ltc_is_valid_frame_rate(fps)) {
    rt.averageFrameLength = kUnknown;
    return;
  }
  // A frame number above 29 leaves the format of the frame before.
  static_cast<void>(ltc_detect_frame_format(rt.time, drop, fps));
  rt.lastGoodSample = sample;
  if (std::fabs(1.0 - std::fabs(rt.bitClockRate) / fps) > kHysteresis) {
    tuneTo(decoder, fps);
  }
  if (rt.consumer.callback != nullptr && ltc_is_valid(rt.time)) {
    rt.consumer.callback(rt.time, rt.userBits.data(), rt.consumer.refCon, hostTime, fps);
  }
}

// The sign changes with this sample.
void takeEdge(ltc_decoder& decoder, std::uint64_t sample, std::uint64_t hostTime) noexcept {
  auto& rt = decoder.rt;
  const auto delta = static_cast<float>(sample - rt.lastEdgeSample);
  std::uint64_t frameTime = rt.lastEdgeHostTime;
  rt.lastEdgeSample = sample;
  rt.lastEdgeHostTime = hostTime;

  const float bits = delta / rt.samplesPerBit;
  const float toFull = std::fabs(1.0F - bits);
  const float toHalf = std::fabs(1.0F - 2.0F * bits);
  if (toFull == toHalf) {
    return;  // no time has passed since the edge before
  }
  // Any two halves are a one, without regard to the bit in which they lie.
  const bool half = toHalf < toFull;
  if (half && !rt.halfBitSeen) {
    rt.halfBitSeen = true;
    return;
  }
  rt.halfBitSeen = false;
  if (ltc_frame_push_bit(*decoder.frame, half ? 1 : 0, frameTime)) {
    takeFrame(decoder, sample, frameTime);
  }
}

void forgetSignal(ltc_decoder& decoder) noexcept {
  auto& rt = decoder.rt;
  rt.lastGoodSample = 0;
  rt.lastFrameSample = 0;
  rt.averageFrameLength = kUnknown;
  rt.time.mCounter = 0;
  tuneTo(decoder, kSearchRate);
}

}  // namespace

std::int32_t ltc_decoder_create(ltc_decoder*& decoder) noexcept {
  decoder = new (std::nothrow) ltc_decoder;
  return decoder != nullptr ? 0 : kLTCDecoderNoMemory;
}

std::int32_t ltc_decoder_init(ltc_decoder* decoder, std::uint64_t hostFrequency, double sampleRate,
                              double startRate) noexcept {
  if (decoder == nullptr || hostFrequency == 0 || !isRate(sampleRate) || !isRate(startRate)) {
    return kLTCDecoderNullArgument;
  }
  decoder->frame = ltc_frame_create();
  if (decoder->frame == nullptr) {
    return kLTCDecoderNoMemory;
  }
  decoder->sampleRate = sampleRate;
  decoder->hostTicksPerSample =
      static_cast<std::uint64_t>(static_cast<double>(hostFrequency) / sampleRate);
  decoder->stallLength = static_cast<std::uint64_t>(sampleRate / kStallsPerSecond);
  tuneTo(*decoder, startRate);
  return 0;
}

std::int32_t ltc_decoder_set_callback(ltc_decoder& decoder, LTCDecoderCallback callback,
                                      void* refCon) noexcept {
  const std::lock_guard lock(decoder.lock);
  decoder.consumer = {callback, refCon};
  decoder.consumerChanged.store(true, std::memory_order_relaxed);
  return 0;
}

std::int32_t ltc_decoder_get_callback(ltc_decoder* decoder, LTCDecoderCallback& callback,
                                      void*& refCon) noexcept {
  if (decoder == nullptr) {
    return kLTCDecoderNullArgument;
  }
  const std::lock_guard lock(decoder->lock);
  callback = decoder->consumer.callback;
  refCon = decoder->consumer.refCon;
  return 0;
}

void ltc_decoder_dispose(ltc_decoder* decoder) noexcept {
  if (decoder != nullptr) {
    ltc_frame_destroy(decoder->frame);
    delete decoder;
  }
}

std::int32_t ltc_decoder_process(ltc_decoder& decoder, const audio::AudioTimeStamp& timeStamp,
                                 const float* samples, std::uint32_t count) noexcept {
  auto& rt = decoder.rt;
  const std::uint64_t first = sampleNumberOf(timeStamp.mSampleTime);
  std::uint64_t lastSign = rt.lastSign;
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t sign = signOf(samples[i]);
    if (sign != lastSign) {
      lastSign = sign;
      takeEdge(decoder, first + i, timeStamp.mHostTime + i * decoder.hostTicksPerSample);
    }
  }
  rt.lastSign = lastSign;
  if (rt.lastGoodSample != 0 && rt.lastGoodSample + decoder.stallLength < first + count) {
    forgetSignal(decoder);
  }
  return 0;
}

}  // namespace velor
