// SPDX-License-Identifier: MIT
#include "Velor/program/VLEncode.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include "Velor/program/VLProgressBar.h"
#include "Velor/program/VLStopSignals.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/LowPass.h"
#include "platform/audio/file/SoundFileWriter.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

constexpr int kFramesPerBatch = 16;
constexpr double kCutoff = 14000.0;
constexpr double kResonance = 0.70710677;
// Where half the sample rate is near the cut-off, the filter would ring for bits.
constexpr int kMinFilteredRate = 40000;

// So many frames in so many seconds.
struct FrameRate {
  std::int64_t frames;
  std::int64_t seconds;
};

// As ltc_seconds_per_frame has them, but in whole numbers, so that frames that fall
// between two samples always fall to the same side.
FrameRate frameRateOf(std::uint32_t format) {
  switch (format) {
    case kSMPTETimeType2398:
      return {24000, 1001};
    case kSMPTETimeType2997:
    case kSMPTETimeType2997Drop:
      return {2997, 100};
    default:
      return {ltc_frames_per_second(format), 1};
  }
}

// Samples by which a filter moves an edge: until half of a step has come through.
std::size_t delayOf(const audio::LowPass::Coefficients& coefficients) {
  audio::LowPass filter;
  std::size_t delay = 0;
  for (float sample = 1; filter.process(coefficients, {&sample, 1}), sample < 0.5F; sample = 1) {
    ++delay;
  }
  return delay;
}

struct FreeFrame {
  void operator()(ltc_frame* frame) const { ltc_frame_destroy(frame); }
};

// The signal, batch by batch.
class Signal {
 public:
  explicit Signal(const VLEncodeOptions& options)
      : mOptions(options),
        mRate(frameRateOf(options.start.mType)),
        mFrame(ltc_frame_create()),
        mTime(options.start),
        mCoefficients(
            options.sound.sampleRate < kMinFilteredRate
                ? audio::LowPass::Coefficients{}
                : audio::LowPass::coefficients(options.sound.sampleRate, kCutoff, kResonance)),
        mSkipped(delayOf(mCoefficients)) {}

  bool isThere() const { return mFrame != nullptr; }

  // The next samples; they are there until the next call.
  std::span<const float> next() {
    const std::int64_t begin = sampleOf(mNumber);
    mSamples.resize(static_cast<std::size_t>(sampleOf(mNumber + kFramesPerBatch) - begin) + 1);
    for (int i = 0; i < kFramesPerBatch; ++i, ++mNumber) {
      const std::int64_t from = sampleOf(mNumber);
      ltc_frame_encode(*mFrame, mTime, mOptions.userBits.data());
      ltc_frame_render(*mFrame, mSamples.data() + (from - begin),
                       static_cast<std::uint32_t>(sampleOf(mNumber + 1) - from), mOptions.level);
      ltc_add_frames(mTime, 1);
    }
    const auto samples = std::span(mSamples).first(mSamples.size() - 1);
    mLowPass.process(mCoefficients, samples);
    // The overshoot after an edge would otherwise be louder than the level, and clip.
    for (float& sample : samples) {
      sample = std::clamp(sample, -mOptions.level, mOptions.level);
    }
    return samples.subspan(std::exchange(mSkipped, 0));
  }

 private:
  // Where a frame begins.
  std::int64_t sampleOf(std::int64_t number) const {
    const std::int64_t numerator = number * mOptions.sound.sampleRate * mRate.seconds;
    return (2 * numerator + mRate.frames) / (2 * mRate.frames);
  }

  const VLEncodeOptions& mOptions;
  const FrameRate mRate;
  const std::unique_ptr<ltc_frame, FreeFrame> mFrame;
  SMPTETime mTime;
  const audio::LowPass::Coefficients mCoefficients;
  audio::LowPass mLowPass;
  std::size_t mSkipped;  // so that edges are where frames and bits begin
  std::int64_t mNumber = 0;
  std::vector<float> mSamples;
};

int fail(const std::string& error) {
  std::fprintf(stderr, "velor: encode: %s\n", store::printable(error).c_str());
  return 1;
}

// A signal has asked for the end.
volatile std::sig_atomic_t gIsStopped = 0;

}  // namespace

std::int64_t VLEncodeLength(const VLEncodeOptions& options) {
  return std::llround(options.duration * options.sound.sampleRate);
}

Expected<> VLEncodeFile(const VLEncodeOptions& options,
                        const std::function<bool(double part)>& progress) {
  const std::int64_t length = VLEncodeLength(options);
  Signal signal(options);
  if (!signal.isThere()) {
    return failure("out of memory");
  }
  const auto writer = audio::SoundFileWriter::create(options.file, options.sound, length);
  if (!writer) {
    return failure(writer.error().text);
  }
  for (std::int64_t done = 0; done < length;) {
    if (!progress(static_cast<double>(done) / static_cast<double>(length))) {
      return failure("stopped; " + options.file + " was not written");
    }
    auto samples = signal.next();
    samples = samples.first(std::min(samples.size(), static_cast<std::size_t>(length - done)));
    if (auto written = (*writer)->write(samples); !written) {
      return written;
    }
    done += static_cast<std::int64_t>(samples.size());
  }
  return (*writer)->finish();
}

int VLEncodeRun(const VLEncodeOptions& options) {
  if (std::error_code ignored; !options.force && std::filesystem::exists(options.file, ignored)) {
    return fail(options.file + " exists; --force replaces it");
  }
  VLStopSignalsInstall([](int) { gIsStopped = 1; });
  // A file that may not grow further is reported as a full disk is.
  std::signal(SIGXFSZ, SIG_IGN);
  Expected<> written;
  {
    VLProgressBar bar("encode");
    written = VLEncodeFile(options, [&bar](double part) {
      bar.show(part);
      return gIsStopped == 0;
    });
  }
  return written ? 0 : fail(written.error().text);
}

}  // namespace velor
