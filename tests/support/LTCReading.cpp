// SPDX-License-Identifier: MIT
#include "tests/support/LTCReading.h"

#include <ltc.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>

#include "Velor/ltc/VLConditionedLTCDecoder.h"
#include "Velor/ltc/VLLTCVarispeedDecoder.h"
#include "Velor/ltc/ltc_decoder.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Realtime.h"

namespace velor {

namespace {

constexpr double kNanoseconds = 1e9;

// Calls `take` for each buffer, with its samples, their number, and the place of the
// first in the signal. Buffers end at a loss of samples.
void inBuffers(const LTCSignal& signal, std::size_t bufferLength,
               const std::function<void(const float*, std::size_t, double)>& take) {
  std::size_t lost = 0;
  auto loss = signal.losses.begin();
  for (std::size_t i = 0; i < signal.samples.size();) {
    while (loss != signal.losses.end() && loss->index == i) {
      lost += loss++->length;
    }
    std::size_t end = std::min(signal.samples.size(), i + bufferLength);
    if (loss != signal.losses.end()) {
      end = std::min(end, loss->index);
    }
    take(signal.samples.data() + i, end - i, static_cast<double>(i + lost));
    i = end;
  }
}

void append(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
            std::uint64_t hostTime, double fps) {
  LTCTold frame;
  frame.time = time;
  std::copy_n(userBits, frame.userBytes.size(), frame.userBytes.begin());
  frame.hostTime = hostTime;
  frame.fps = fps;
  static_cast<std::vector<LTCTold>*>(refCon)->push_back(frame);
}

audio::AudioTimeStamp stampOf(const LTCSignal& signal, double place) {
  audio::AudioTimeStamp timeStamp;
  timeStamp.mSampleTime = place - kLTCHostTimeZero;
  timeStamp.mHostTime = static_cast<std::uint64_t>(
      std::llround((place - kLTCHostTimeZero) * kNanoseconds / signal.sampleRate));
  timeStamp.mFlags = audio::kAudioTimeStampSampleHostTimeValid;
  return timeStamp;
}

void readLive(
    const LTCSignal& signal, std::size_t bufferLength, std::vector<LTCTold>& told,
    const std::function<void(const audio::AudioTimeStamp&, const float*, std::uint32_t)>& process) {
  told.reserve(signal.frames.size() * 4);  // nothing allocates in the real-time scope
  inBuffers(signal, bufferLength, [&](const float* samples, std::size_t count, double place) {
    const std::size_t before = told.size();
    {
      const host::RealtimeContext realtime;
      process(stampOf(signal, place), samples, static_cast<std::uint32_t>(count));
    }
    for (std::size_t i = before; i < told.size(); ++i) {
      told[i].begin = told[i].toldAt = place;
      told[i].end = place + static_cast<double>(count);
    }
  });
}

}  // namespace

std::vector<LTCTold> readByVelor(const LTCSignal& signal, std::size_t bufferLength) {
  std::vector<LTCTold> told;
  ltc_decoder* decoder = nullptr;
  if (ltc_decoder_create(decoder) != 0 ||
      ltc_decoder_init(decoder, static_cast<std::uint64_t>(kNanoseconds), signal.sampleRate,
                       25.0) != 0) {
    std::abort();
  }
  ltc_decoder_set_callback(*decoder, append, &told);
  readLive(signal, bufferLength, told,
           [&](const auto& stamp, const float* samples, std::uint32_t count) {
             ltc_decoder_process(*decoder, stamp, samples, count);
           });
  ltc_decoder_dispose(decoder);
  return told;
}

std::vector<LTCTold> readConditioned(const LTCSignal& signal, std::size_t bufferLength) {
  std::vector<LTCTold> told;
  const auto decoder = std::make_unique<VLConditionedLTCDecoder>(
      static_cast<std::uint64_t>(kNanoseconds), signal.sampleRate, append, &told);
  readLive(signal, bufferLength, told,
           [&](const auto& stamp, const float* samples, std::uint32_t count) {
             decoder->process(stamp, samples, count);
           });
  for (LTCTold& frame : told) {
    const double length = signal.sampleRate / frame.fps;
    const double mark =
        static_cast<double>(frame.hostTime) * signal.sampleRate / kNanoseconds + kLTCHostTimeZero;
    frame.place = mark + length / 160;
    frame.begin = frame.end = frame.place + length;
  }
  return told;
}

std::vector<LTCTold> readVarispeed(const LTCSignal& signal) {
  std::vector<LTCTold> told;
  VLLTCVarispeedDecoder decoder(signal.sampleRate, [&](const VLLTCBits& bits) {
    LTCTold frame;
    frame.time =
        VLLTCTimeOf(bits, bits.field(kLTCDropFlag) != 0 ? kSMPTETimeType30Drop : kSMPTETimeType30);
    frame.userBytes = bits.userBits();
    frame.place = bits.begin;
    frame.begin = frame.end = bits.end;
    frame.isReverse = bits.isReverse;
    told.push_back(frame);
  });
  decoder.process(signal.samples);
  decoder.finish();
  return told;
}

std::vector<LTCTold> readByLibltc(const LTCSignal& signal, std::size_t bufferLength) {
  std::vector<LTCTold> told;
  const auto samplesPerFrame = static_cast<int>(signal.sampleRate / 25);
  const std::unique_ptr<LTCDecoder, int (*)(LTCDecoder*)> decoder(
      ::ltc_decoder_create(samplesPerFrame, 32), ltc_decoder_free);
  std::vector<float> buffer;
  inBuffers(signal, bufferLength, [&](const float* samples, std::size_t count, double place) {
    buffer.assign(samples, samples + count);
    ltc_decoder_write_float(decoder.get(), buffer.data(), count, static_cast<ltc_off_t>(place));
    for (LTCFrameExt got; ltc_decoder_read(decoder.get(), &got) > 0;) {
      SMPTETimecode digits;
      ltc_frame_to_time(&digits, &got.ltc, 0);
      LTCTold frame;
      frame.time.mType = got.ltc.dfbit != 0 ? kSMPTETimeType30Drop : kSMPTETimeType30;
      frame.time.mHours = digits.hours;
      frame.time.mMinutes = digits.mins;
      frame.time.mSeconds = digits.secs;
      frame.time.mFrames = digits.frame;
      const unsigned long userBits = ltc_frame_get_user_bits(&got.ltc);
      for (unsigned i = 0; i < 4; ++i) {
        frame.userBytes[i] = static_cast<std::uint8_t>(userBits >> 8 * i);
      }
      frame.begin = place;
      frame.end = place + static_cast<double>(count);
      told.push_back(frame);
    }
  });
  return told;
}

std::size_t frameOf(const LTCSignal& signal, const LTCTold& told) {
  // The first of those that end at one place, which a cut has made of frames.
  const auto endingFrom = [&signal](double place) {
    return std::lower_bound(signal.frames.begin(), signal.frames.end(), place,
                            [](const auto& frame, double end) { return frame.end < end; });
  };
  auto nearest = endingFrom(told.begin);
  if (nearest != signal.frames.begin()) {
    const double before = std::prev(nearest)->end;
    if (nearest == signal.frames.end() || told.begin - before <= nearest->end - told.end) {
      nearest = endingFrom(before);
    }
  }
  return static_cast<std::size_t>(nearest - signal.frames.begin());
}

LTCScore scoreOf(const LTCSignal& signal, const std::vector<LTCTold>& told) {
  LTCScore score;
  score.read.resize(signal.frames.size());
  for (const LTCTold& got : told) {
    const std::size_t index = frameOf(signal, got);
    const LTCSignal::Frame& frame = signal.frames[index];
    const bool isTime =
        !score.read[index] && got.time.mHours == frame.time.mHours &&
        got.time.mMinutes == frame.time.mMinutes && got.time.mSeconds == frame.time.mSeconds &&
        got.time.mFrames == frame.time.mFrames && ltc_is_drop(got.time) == ltc_is_drop(frame.time);
    if (isTime && got.userBytes == frame.userBytes) {
      score.read[index] = true;
      ++score.right;
    } else {
      ++score.wrong;
      score.falseTimes += isTime ? 0 : 1;
    }
  }
  return score;
}

double hostTimeErrorOf(const LTCSignal& signal, std::size_t frame, const LTCTold& told) {
  const double place = signal.frames[frame].mark - kLTCHostTimeZero;
  return static_cast<double>(told.hostTime) - place * kNanoseconds / signal.sampleRate;
}

}  // namespace velor
