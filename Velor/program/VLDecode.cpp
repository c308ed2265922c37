// SPDX-License-Identifier: MIT
#include "Velor/program/VLDecode.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <span>
#include <utility>

#include "Velor/ltc/VLLTCVarispeedDecoder.h"
#include "Velor/ltc/ltc_decoder.h"
#include "Velor/program/VLAnalysisWords.h"
#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLProgressBar.h"
#include "Velor/program/VLStandardOutput.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioTypes.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
constexpr std::size_t kSamplesPerBlock = 1 << 16;  // of all channels
constexpr double kStartRate = 25.0;
// The host time of a sample is its number and one more, since 0 stands for none.
constexpr std::uint64_t kFirstHostTime = 1;
// Frames and their crossings of zero: at most two a bit.
constexpr std::size_t kCrossingsKept = 8 * 2 * kLTCFrameBits;

// Counts frames and what is wrong between them.
class Tally {
 public:
  Tally(double sampleRate, const std::function<void(const VLDecodedFrame&)>& consumer)
      : mSampleRate(sampleRate), mConsumer(consumer) {}

  // The frame stands from `begin` to `end`, and `isAdjacent` where the one before it ends.
  void take(const VLDecodedFrame& frame, double begin, double end, bool isAdjacent) {
    if (mSummary.frames++ != 0) {
      const bool follows = isAdjacent && frame.isReverse == mPrevious.isReverse;
      if (follows) {
        ++mSteps;
        mStepSamples += end - begin;
      }
      if (!follows || !(isNext(frame, mPrevious.time.mType) || isNext(frame, frame.time.mType))) {
        ++mSummary.gapCount;
        if (mSummary.gaps.size() < VLDecodeSummary::kGapsListed) {
          mSummary.gaps.push_back({mPrevious, frame});
        }
      }
    }
    if (mSummary.frames == 1) {
      mSummary.first = frame;
    }
    ++mFormats[frame.time.mType];
    mPrevious = frame;
    mConsumer(frame);
  }

  VLDecodeSummary finish() {
    if (mSteps != 0) {
      mSummary.meanRate = static_cast<double>(mSteps) * mSampleRate / mStepSamples;
    }
    if (!mFormats.empty()) {
      mSummary.format =
          std::max_element(mFormats.begin(), mFormats.end(), [](const auto& a, const auto& b) {
            return a.second < b.second;
          })->first;
    }
    return std::move(mSummary);
  }

 private:
  // In a format that was detected for one of both: at a rate between two nominal ones
  // it is now the one, now the other, by the number of the frame.
  bool isNext(const VLDecodedFrame& frame, std::uint32_t type) const {
    SMPTETime first = frame.isReverse ? frame.time : mPrevious.time;
    const SMPTETime& second = frame.isReverse ? mPrevious.time : frame.time;
    first.mType = type;
    ltc_add_frames(first, 1);
    return first.mHours == second.mHours && first.mMinutes == second.mMinutes &&
           first.mSeconds == second.mSeconds && first.mFrames == second.mFrames;
  }

  const double mSampleRate;
  const std::function<void(const VLDecodedFrame&)>& mConsumer;
  VLDecodeSummary mSummary;
  std::map<std::uint32_t, std::uint64_t> mFormats;
  VLDecodedFrame mPrevious;
  std::uint64_t mSteps = 0;
  double mStepSamples = 0;
};

// Gives the decoder the samples from one crossing of zero to the next, so that it is
// known at which one a frame has ended when it is reported.
class PlainReading {
 public:
  PlainReading(double sampleRate, Tally& tally) : mSampleRate(sampleRate), mTally(tally) {
    // With a tick of host time a sample, times of the decoder are places in the file.
    mIsThere = ltc_decoder_create(mDecoder) == 0 &&
               ltc_decoder_init(mDecoder, static_cast<std::uint64_t>(sampleRate), sampleRate,
                                kStartRate) == 0 &&
               ltc_decoder_set_callback(*mDecoder, &PlainReading::frameRead, this) == 0;
  }
  ~PlainReading() { ltc_decoder_dispose(mDecoder); }
  PlainReading(const PlainReading&) = delete;
  PlainReading& operator=(const PlainReading&) = delete;

  bool isThere() const { return mIsThere; }

  void take(std::span<const float> samples) {
    for (const float sample : samples) {
      if (mHasLast) {
        settle(sample);
      }
      mLast = sample;
      mHasLast = true;
    }
    flush();
  }

  // The signal changes behind its last sample, as the begin of another frame would.
  void finish() {
    if (!mHasLast) {
      return;
    }
    settle(0);
    append(mBefore < 0 ? 1.0F : -1.0F);
    flush();
  }

 private:
  // Takes the sample before `next`. A single zero inside a signal has no sign: an
  // encoder writes it where a change falls on the sample, or into the middle of a bit, where
  // the decoder, which knows two signs only, would take it for two changes.
  void settle(float next) { append(mLast == 0 && next != 0 ? mBefore : mLast); }

  void append(float sample) {
    if (std::signbit(sample) != std::signbit(mBefore) && mNumber != 0) {
      flush();
      mCrossings[mCrossingCount++ % kCrossingsKept] = mNumber;
    }
    mRun.push_back(sample);
    mBefore = sample;
    ++mNumber;
  }

  void flush() {
    audio::AudioTimeStamp stamp;
    const std::uint64_t first = mNumber - mRun.size();
    stamp.mSampleTime = static_cast<double>(first);
    stamp.mHostTime = first + kFirstHostTime;
    stamp.mFlags = audio::kAudioTimeStampSampleHostTimeValid;
    ltc_decoder_process(*mDecoder, stamp, mRun.data(), static_cast<std::uint32_t>(mRun.size()));
    mRun.clear();
  }

  static void frameRead(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
                        std::uint64_t hostTime, double fps) {
    static_cast<PlainReading*>(refCon)->take(time, userBits, hostTime, fps);
  }

  std::uint64_t crossing(std::uint64_t back) const {
    return mCrossings[(mCrossingCount - 1 - back) % kCrossingsKept];
  }

  // Where the frame began whose last bit ended with the last crossing.
  std::uint64_t beginOf(std::uint64_t hostTime, double fps) const {
    const std::uint64_t kept = std::min<std::uint64_t>(mCrossingCount, kCrossingsKept);
    // The time is that of the crossing in the middle of the bit before it.
    for (std::uint64_t back = 1; hostTime != 0 && back < kept; ++back) {
      if (crossing(back) + kFirstHostTime == hostTime) {
        return crossing(back - 1);
      }
    }
    // Not known: the crossing that is nearest to a frame before the end.
    const double wanted = static_cast<double>(crossing(0)) - mSampleRate / fps;
    std::uint64_t best = 0;
    for (std::uint64_t back = 1; back < kept; ++back) {
      const auto away = [&](std::uint64_t each) {
        return std::fabs(static_cast<double>(crossing(each)) - wanted);
      };
      best = away(back) < away(best) ? back : best;
    }
    return crossing(best);
  }

  void take(const SMPTETime& time, const std::uint8_t* userBits, std::uint64_t hostTime,
            double fps) {
    VLDecodedFrame frame;
    frame.sample = beginOf(hostTime, fps);
    frame.time = time;
    std::copy_n(userBits, frame.userBits.size(), frame.userBits.begin());
    frame.fps = fps;
    const std::uint64_t end = crossing(0);
    mTally.take(frame, static_cast<double>(frame.sample), static_cast<double>(end),
                frame.sample == mPreviousEnd);
    mPreviousEnd = end;
  }

  const double mSampleRate;
  Tally& mTally;
  ltc_decoder* mDecoder = nullptr;
  bool mIsThere = false;

  bool mHasLast = false;
  float mLast = 0;    // came in, but is not settled
  float mBefore = 0;  // the one before it, as it was settled
  std::uint64_t mNumber = 0;
  std::vector<float> mRun;  // not given to the decoder yet
  std::array<std::uint64_t, kCrossingsKept> mCrossings{};
  std::uint64_t mCrossingCount = 0;

  std::uint64_t mPreviousEnd = 0;
};

class ConditionedReading {
 public:
  ConditionedReading(double sampleRate, Tally& tally)
      : mSampleRate(sampleRate),
        mTally(tally),
        mDecoder(sampleRate, [this](const VLLTCBits& bits) { take(bits); }) {}

  void take(std::span<const float> samples) { mDecoder.process(samples); }
  void finish() { mDecoder.finish(); }

 private:
  void take(const VLLTCBits& bits) {
    const double length = bits.end - bits.begin;
    const bool isAdjacent = std::fabs(bits.begin - mPreviousEnd) < kAdjacent * length;
    mAverageLength =
        isAdjacent ? mAverageLength + kNewLengthWeight * (length - mAverageLength) : length;
    mPreviousEnd = bits.end;
    VLDecodedFrame frame;
    // The first sample behind the edge.
    frame.sample = static_cast<std::uint64_t>(std::max(0.0, std::floor(bits.begin) + 1));
    frame.userBits = bits.userBits();
    frame.fps = mSampleRate / mAverageLength;
    frame.isReverse = bits.isReverse;
    // Away from its speed a frame has the rate of those that were read near theirs.
    if (ltc_is_valid_frame_rate(frame.fps)) {
      mNominalRate = frame.fps;
    }
    frame.time = VLLTCTimeOf(bits, mType);
    static_cast<void>(ltc_detect_frame_format(
        frame.time, static_cast<std::uint8_t>(bits.field(kLTCDropFlag)), mNominalRate));
    mType = frame.time.mType;
    mTally.take(frame, bits.begin, bits.end, isAdjacent);
  }

  static constexpr double kAdjacent = 0.05;  // of a frame
  static constexpr double kNewLengthWeight = 0.1;

  const double mSampleRate;
  Tally& mTally;
  VLLTCVarispeedDecoder mDecoder;
  double mPreviousEnd = -1e9;
  double mAverageLength = 0;
  double mNominalRate = kStartRate;
  std::uint32_t mType = kSMPTETimeType25;
};

// The samples of one channel.
void deinterleave(std::span<const float> room, std::size_t channels, std::size_t channel,
                  std::vector<float>& samples) {
  samples.resize(room.size() / channels);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = room[i * channels + channel];
  }
}

// Reads a channel up to the end, or to what is wrong with the file, which it gives.
template <class Reading>
std::optional<Error> readInto(Reading& reading, audio::SoundFileReader& reader, int channel,
                              const std::function<void(double part)>& progress) {
  const auto channels = static_cast<std::size_t>(reader.channels());
  std::vector<float> room(kSamplesPerBlock / channels * channels);
  std::vector<float> samples;
  std::int64_t done = 0;
  std::optional<Error> error;
  for (;;) {
    auto part = reader.read(room);
    deinterleave(std::span(room).first(part.frames * channels), channels,
                 static_cast<std::size_t>(channel - 1), samples);
    reading.take(samples);
    error = std::move(part.error);
    if (part.frames == 0 || error) {
      break;
    }
    done += static_cast<std::int64_t>(part.frames);
    if (reader.frames()) {
      progress(static_cast<double>(done) / static_cast<double>(*reader.frames()));
    }
  }
  reading.finish();
  return error;
}

std::string textOf(const SMPTETime& time) {
  std::array<char, kLTCStringSize> text{};
  ltc_format_string(time, text.data());
  return text.data();
}

void print(const VLDecodedFrame& frame, double sampleRate, VLDecodeOptions::Form form) {
  const double seconds = static_cast<double>(frame.sample) / sampleRate;
  std::array<char, 2 * kLTCUserBytes + 1> userBits{};
  std::snprintf(userBits.data(), userBits.size(), "%02x%02x%02x%02x", frame.userBits[3],
                frame.userBits[2], frame.userBits[1], frame.userBits[0]);
  const std::string time = textOf(frame.time);
  const bool drop = ltc_is_drop(frame.time);
  const char* format = VLFormatName(frame.time.mType);
  const char* direction = frame.isReverse ? "R" : "F";
  switch (form) {
    case VLDecodeOptions::Form::csv:
      std::printf("%" PRIu64 ",%.6f,%s,%d,%s,%.3f,%s,%s\n", frame.sample, seconds, time.c_str(),
                  drop ? 1 : 0, userBits.data(), frame.fps, format, direction);
      break;
    case VLDecodeOptions::Form::json:
      std::printf("{\"sample\":%" PRIu64
                  ",\"seconds\":%.6f,\"time\":\"%s\",\"drop\":%s,\"userBits\":\"%s\","
                  "\"rate\":%.3f,\"format\":\"%s\",\"direction\":\"%s\"}\n",
                  frame.sample, seconds, time.c_str(), drop ? "true" : "false", userBits.data(),
                  frame.fps, format, direction);
      break;
    default:
      std::printf("%10" PRIu64 " %13.6f  %s  %-4s  %s  %6.3f  %-7s %s\n", frame.sample, seconds,
                  time.c_str(), drop ? "drop" : "-", userBits.data(), frame.fps, format, direction);
  }
}

void print(const VLDecodeSummary& summary, double sampleRate) {
  std::fprintf(stderr, "frames  %" PRIu64 "\n", summary.frames);
  if (summary.frames != 0) {
    std::fprintf(stderr, "begins  at %.6f s: %s; no frame was read before it\n",
                 static_cast<double>(summary.first.sample) / sampleRate,
                 textOf(summary.first.time).c_str());
  }
  if (summary.format) {
    std::fprintf(stderr, "format  %s\n", VLFormatName(*summary.format));
    if (summary.meanRate > 0) {
      const double deviation = summary.meanRate * ltc_seconds_per_frame(*summary.format) - 1;
      std::fprintf(stderr, "rate    %.6f frames a second, %+.1f ppm of nominal\n", summary.meanRate,
                   VLAnalysisWords::rounded(1e6 * deviation, 1));
    }
  }
  std::fprintf(stderr, "gaps    %" PRIu64 "\n", summary.gapCount);
  for (const auto& [before, behind] : summary.gaps) {
    std::fprintf(stderr, "        at %.6f s: %s, and %.6f s later %s\n",
                 static_cast<double>(before.sample) / sampleRate, textOf(before.time).c_str(),
                 static_cast<double>(behind.sample - before.sample) / sampleRate,
                 textOf(behind.time).c_str());
  }
  if (summary.gapCount > summary.gaps.size()) {
    std::fprintf(stderr, "        and %" PRIu64 " more\n", summary.gapCount - summary.gaps.size());
  }
}

// From 1 on; the one on which a frame is read first. `channel` holds none.
std::optional<std::size_t> channelWithLTC(const std::string& file, std::size_t channel) {
  const auto opened = audio::SoundFileReader::open(file);
  if (!opened) {
    return std::nullopt;
  }
  audio::SoundFileReader& reader = **opened;
  const auto channels = static_cast<std::size_t>(reader.channels());
  std::vector<std::unique_ptr<VLLTCVarispeedDecoder>> decoders;
  bool isFound = false;
  for (std::size_t i = 0; i < channels; ++i) {
    decoders.push_back(std::make_unique<VLLTCVarispeedDecoder>(
        reader.sampleRate(), [&isFound](const VLLTCBits&) { isFound = true; }));
  }
  std::vector<float> room(kSamplesPerBlock / channels * channels);
  std::vector<float> samples;
  while (const std::size_t frames = channels > 1 ? reader.read(room).frames : 0) {
    for (std::size_t i = 0; i < channels; ++i) {
      if (i + 1 == channel) {
        continue;
      }
      deinterleave(std::span(room).first(frames * channels), channels, i, samples);
      decoders[i]->process(samples);
      if (isFound) {
        return i + 1;
      }
    }
  }
  return std::nullopt;
}

int fail(const std::string& error, int status) {
  std::fprintf(stderr, "velor: decode: %s\n", store::printable(error).c_str());
  return status;
}

}  // namespace

VLDecodeSummary VLDecodeFile(audio::SoundFileReader& reader, int channel, bool isPlain,
                             const std::function<void(const VLDecodedFrame&)>& frame,
                             const std::function<void(double part)>& progress) {
  Tally tally(reader.sampleRate(), frame);
  std::optional<Error> error;
  if (isPlain) {
    PlainReading reading(reader.sampleRate(), tally);
    error =
        reading.isThere() ? readInto(reading, reader, channel, progress) : Error{"out of memory"};
  } else {
    ConditionedReading reading(reader.sampleRate(), tally);
    error = readInto(reading, reader, channel, progress);
  }
  VLDecodeSummary summary = tally.finish();
  summary.error = std::move(error);
  return summary;
}

int VLDecodeRun(const VLDecodeOptions& options) {
  const auto opened = audio::SoundFileReader::open(options.file);
  if (!opened) {
    return fail(opened.error().text, 1);
  }
  audio::SoundFileReader& reader = **opened;
  if (options.channel > reader.channels()) {
    return fail("--channel: " + options.file + " has no channel " +
                    std::to_string(options.channel) + " (1 to " +
                    std::to_string(reader.channels()) + ")",
                kUsageStatus);
  }
  const double sampleRate = reader.sampleRate();
  if (options.form == VLDecodeOptions::Form::csv) {
    std::puts("sample,seconds,time,drop,user_bits,rate,format,direction");
  }
  VLDecodeSummary summary;
  {
    VLProgressBar bar("decode");
    const bool isHidden = isatty(STDOUT_FILENO) == 1;  // the frames are there to be seen
    summary = VLDecodeFile(
        reader, options.channel, options.isPlain,
        [&](const VLDecodedFrame& frame) { print(frame, sampleRate, options.form); },
        [&](double part) {
          if (!isHidden) {
            bar.show(part);
          }
        });
  }
  if (!VLStandardOutput::hasTaken()) {
    return fail(VLStandardOutput::kRefusal, 1);
  }
  print(summary, sampleRate);
  if (summary.error) {
    return fail(summary.error->text, 1);
  }
  if (summary.frames != 0) {
    return 0;
  }
  const auto channel = channelWithLTC(options.file, static_cast<std::size_t>(options.channel));
  return fail("no LTC on channel " + std::to_string(options.channel) +
                  (channel ? "; channel " + std::to_string(*channel) + " carries LTC" : ""),
              1);
}

}  // namespace velor
