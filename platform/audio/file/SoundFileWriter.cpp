// SPDX-License-Identifier: MIT
#include "platform/audio/file/SoundFileWriter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <utility>

namespace velor::audio {
namespace {

constexpr mode_t kMode = 0666;  // a document of the user, so less the umask alone

struct Container {
  const char* extension;
  int format;  // of libsndfile
  bool hasFloats;
  int maxSampleRate;
  int maxOddSampleRate;   // above it only multiples of 10
  std::int64_t maxBytes;  // of samples
  std::int64_t maxFrames;
};

// RIFF counts bytes in 32 bits, those of its chunks' heads among them. STREAMINFO of
// FLAC has 36 bits for the frames and 20 for the sample rate, of which frames can tell
// what is below 65536 Hz or a multiple of 10 up to 655350 (RFC 9639).
constexpr std::int64_t kNoLimit = INT64_MAX;
constexpr std::int64_t kRiffBytes = (std::int64_t{1} << 32) - 1 - 4096;
constexpr std::int64_t kFlacFrames = (std::int64_t{1} << 36) - 1;
constexpr std::array<Container, 3> kContainers = {
    {{".wav", SF_FORMAT_WAV, true, SoundFormat::kMaxSampleRate, SoundFormat::kMaxSampleRate,
      kRiffBytes, kNoLimit},
     {".w64", SF_FORMAT_W64, true, SoundFormat::kMaxSampleRate, SoundFormat::kMaxSampleRate,
      kNoLimit, kNoLimit},
     {".flac", SF_FORMAT_FLAC, false, 655350, 65535, kNoLimit, kFlacFrames}}};

const Container* containerOf(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto* const found =
      std::find_if(kContainers.begin(), kContainers.end(),
                   [&extension](const Container& each) { return extension == each.extension; });
  return found != kContainers.end() ? found : nullptr;
}

int bytesOf(SampleEncoding encoding) noexcept {
  return encoding == SampleEncoding::int16 ? 2 : encoding == SampleEncoding::int24 ? 3 : 4;
}

int subtypeOf(SampleEncoding encoding) noexcept {
  switch (encoding) {
    case SampleEncoding::int16:
      return SF_FORMAT_PCM_16;
    case SampleEncoding::int24:
      return SF_FORMAT_PCM_24;
    default:
      return SF_FORMAT_FLOAT;
  }
}

std::string outOfRange(const char* what, int value, int lowest, int highest) {
  return std::string(what) + " of " + std::to_string(value) + " is out of range (" +
         std::to_string(lowest) + " to " + std::to_string(highest) + ")";
}

// No number becomes 0 here, and is refused before.
float cut(float sample) noexcept {
  return sample > 1.0F ? 1.0F : sample >= -1.0F ? sample : sample < -1.0F ? -1.0F : 0.0F;
}

// To the nearest.
std::int32_t quantised(float sample, double fullScale) noexcept {
  const double scaled = static_cast<double>(cut(sample)) * fullScale;
  return static_cast<std::int32_t>(scaled + (scaled < 0 ? -0.5 : 0.5));
}

constexpr double kFullScale16 = 32767.0;
constexpr double kFullScale24 = 8388607.0;
// The library takes integers of 32 bits and keeps the upper 24.
constexpr int kShift24 = 8;

}  // namespace

Expected<> SoundFileWriter::check(const std::filesystem::path& path, const SoundFormat& format,
                                  std::int64_t frames) {
  const Container* const container = containerOf(path);
  if (container == nullptr) {
    return failure("cannot tell the kind of file from the name '" + path.string() +
                   "' (.wav, .w64 or .flac)");
  }
  const std::string kind = container->extension;
  if (!container->hasFloats && format.encoding == SampleEncoding::float32) {
    return failure(kind + " holds no floats (16 or 24 bits, or another kind of file)");
  }
  if (format.sampleRate < SoundFormat::kMinSampleRate ||
      format.sampleRate > container->maxSampleRate) {
    return failure(outOfRange("a sample rate", format.sampleRate, SoundFormat::kMinSampleRate,
                              container->maxSampleRate) +
                   " for " + kind);
  }
  if (container->maxOddSampleRate < format.sampleRate && format.sampleRate % 10 != 0) {
    return failure(kind + " holds no sample rate of " + std::to_string(format.sampleRate) +
                   " (above " + std::to_string(container->maxOddSampleRate) +
                   " only multiples of 10)");
  }
  SF_INFO info{};
  info.samplerate = format.sampleRate;
  info.channels = format.channels;
  info.format = container->format | subtypeOf(format.encoding);
  if (format.channels < 1 || format.channels > SoundFormat::kMaxChannels ||
      sf_format_check(&info) == 0) {
    return failure(kind + " does not hold " + std::to_string(format.channels) + " channels");
  }
  const std::int64_t maxFrames =
      std::min(container->maxFrames,
               container->maxBytes / (std::int64_t{format.channels} * bytesOf(format.encoding)));
  if (frames > maxFrames) {
    return failure(kind + " holds at most " + std::to_string(maxFrames / format.sampleRate) +
                   " s of this (.w64 holds more)");
  }
  return {};
}

bool SoundFileWriter::isSilent(float peak, SampleEncoding encoding) {
  switch (encoding) {
    case SampleEncoding::int16:
      return quantised(peak, kFullScale16) == 0;
    case SampleEncoding::int24:
      return quantised(peak, kFullScale24) == 0;
    default:
      return !std::isnormal(peak);
  }
}

SoundFileWriter::SoundFileWriter(const std::filesystem::path& path, const SoundFormat& format,
                                 SF_INFO info, store::ReplacementFile replacement)
    : mPath(path),
      mEncoding(format.encoding),
      mReplacement(std::move(replacement)),
      mHandle(mReplacement.descriptor(), SFM_WRITE, info) {}

Expected<std::unique_ptr<SoundFileWriter>> SoundFileWriter::create(
    const std::filesystem::path& path, const SoundFormat& format, std::int64_t frames) {
  if (const auto possible = check(path, format, frames); !possible) {
    return tl::unexpected(possible.error());
  }
  auto replacement = store::ReplacementFile::create(path, kMode);
  if (!replacement) {
    return tl::unexpected(replacement.error());
  }
  SF_INFO info{};
  info.samplerate = format.sampleRate;
  info.channels = format.channels;
  info.format = containerOf(path)->format | subtypeOf(format.encoding);
  std::unique_ptr<SoundFileWriter> writer(
      new SoundFileWriter(path, format, info, *std::move(replacement)));
  if (writer->mHandle.get() == nullptr) {
    return tl::unexpected(writer->error(writer->mHandle.failure()));
  }
  // It would hold the time of writing: equal input gives equal files.
  sf_command(writer->mHandle.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
  return writer;
}

Error SoundFileWriter::error(const std::string& why) const {
  return {"cannot write " + mPath.string() + ": " + why};
}

Expected<> SoundFileWriter::write(std::span<const float> samples) {
  if (!std::all_of(samples.begin(), samples.end(), [](float each) { return each == each; })) {
    return tl::unexpected(error("a sample is not a number"));
  }
  const auto count = static_cast<sf_count_t>(samples.size());
  sf_count_t written = 0;
  if (mEncoding == SampleEncoding::int16) {
    mShorts.resize(samples.size());
    std::transform(samples.begin(), samples.end(), mShorts.begin(), [](float each) {
      return static_cast<std::int16_t>(quantised(each, kFullScale16));
    });
    written = sf_write_short(mHandle.get(), mShorts.data(), count);
  } else if (mEncoding == SampleEncoding::int24) {
    mInts.resize(samples.size());
    std::transform(samples.begin(), samples.end(), mInts.begin(),
                   [](float each) { return quantised(each, kFullScale24) * (1 << kShift24); });
    written = sf_write_int(mHandle.get(), mInts.data(), count);
  } else {
    mFloats.resize(samples.size());
    std::transform(samples.begin(), samples.end(), mFloats.begin(), cut);
    written = sf_write_float(mHandle.get(), mFloats.data(), count);
  }
  const std::string why = mHandle.failure();
  if (written != count || !why.empty()) {
    return tl::unexpected(error(why.empty() ? "not all was taken" : why));
  }
  return {};
}

Expected<> SoundFileWriter::finish() {
  mHandle.close();
  const std::string why = mHandle.failure();
  if (!why.empty()) {
    return tl::unexpected(error(why));
  }
  return mReplacement.takePlace();
}

}  // namespace velor::audio
