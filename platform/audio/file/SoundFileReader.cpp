// SPDX-License-Identifier: MIT
#include "platform/audio/file/SoundFileReader.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/audio/file/SoundFormat.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kUnknownSize32 = 0xFFFFFFFF;
// Chunks before the samples; a file of more is none that somebody made.
constexpr int kMaxChunks = 4096;

constexpr std::string_view kW64Riff("riff\x2E\x91\xCF\x11\xA5\xD6\x28\xDB\x04\xC1\x00\x00", 16);
constexpr std::string_view kW64Data("data\xF3\xAC\xD3\x11\x8C\xD1\x00\xC0\x4F\x8E\xDB\x8A", 16);

// Little-endian numbers and names at a place of the file; zeros behind its end.
class Bytes {
 public:
  Bytes(int file, std::uint64_t place) {
    [[maybe_unused]] const ssize_t got =
        pread(file, mBytes.data(), mBytes.size(), static_cast<off_t>(place));
  }
  std::string_view text(std::size_t length) const { return {mBytes.data(), length}; }
  std::uint64_t number(std::size_t at, std::size_t length) const {
    std::uint64_t value = 0;
    for (std::size_t i = length; i-- > 0;) {
      value = value << 8U | static_cast<unsigned char>(mBytes[at + i]);
    }
    return value;
  }

 private:
  std::array<char, 32> mBytes{};
};

// Where the samples end by the header of a RIFF, RF64 or W64 file; 0 where it does not
// tell, as that of a recording whose length was not known yet. The library reads a
// shorter file as if it had been meant.
std::uint64_t declaredEnd(int file, std::uint64_t size) {
  const Bytes head(file, 0);
  const bool isW64 = head.text(16) == kW64Riff;
  const bool isRF64 = head.text(4) == "RF64";
  if (!isW64 && !isRF64 && head.text(4) != "RIFF") {
    return 0;
  }
  std::uint64_t dataSize64 = 0;  // of RF64, whose own chunk tells it
  std::uint64_t place = isW64 ? 40 : 12;
  for (int i = 0; i < kMaxChunks && place < size; ++i) {
    const Bytes chunk(file, place);
    if (isW64) {
      const std::uint64_t length = chunk.number(16, 8);  // with the chunk's own head
      if (chunk.text(16) == kW64Data) {
        return length > 24 && length <= INT64_MAX ? place + length : 0;
      }
      if (length < 24 || length > size) {
        return 0;
      }
      place += (length + 7) / 8 * 8;
      continue;
    }
    const std::uint64_t length = chunk.number(4, 4);
    if (chunk.text(4) == "ds64") {
      dataSize64 = chunk.number(16, 8);
    }
    if (chunk.text(4) == "data") {
      const std::uint64_t bytes = isRF64 && length == kUnknownSize32 ? dataSize64 : length;
      return bytes != 0 && bytes != kUnknownSize32 && bytes <= INT64_MAX ? place + 8 + bytes : 0;
    }
    place += 8 + length + length % 2;
  }
  return 0;
}

bool isReadHere(int format) {
  const int kind = format & SF_FORMAT_TYPEMASK;
  return kind == SF_FORMAT_WAV || kind == SF_FORMAT_WAVEX || kind == SF_FORMAT_RF64 ||
         kind == SF_FORMAT_W64 || kind == SF_FORMAT_FLAC;
}

}  // namespace

SoundFileReader::SoundFileReader(const std::filesystem::path& path, store::RegularFile file)
    : mPath(path), mFile(std::move(file)), mHandle(mFile.descriptor(), SFM_READ, mInfo) {}

Expected<std::unique_ptr<SoundFileReader>> SoundFileReader::open(
    const std::filesystem::path& path) {
  auto file = store::RegularFile::open(path);
  if (!file) {
    return tl::unexpected(file.error());
  }
  std::unique_ptr<SoundFileReader> reader(new SoundFileReader(path, *std::move(file)));
  if (const auto readable = reader->checkHeader(); !readable) {
    return tl::unexpected(readable.error());
  }
  const std::uint64_t size = reader->mFile.size();
  const std::uint64_t end = declaredEnd(reader->mFile.descriptor(), size);
  reader->mBytesMissing = end > size ? end - size : 0;
  return reader;
}

Expected<> SoundFileReader::checkHeader() const {
  if (mFile.size() == 0) {
    return tl::unexpected(error("it is empty"));
  }
  if (mHandle.get() == nullptr) {
    return tl::unexpected(error("not a sound file, or damaged (" + mHandle.failure() + ")"));
  }
  if (!isReadHere(mInfo.format)) {
    return tl::unexpected(error("not a WAV, W64 or FLAC file"));
  }
  if (mInfo.channels < 1 || mInfo.channels > SoundFormat::kMaxChannels) {
    return tl::unexpected(error("it has " + std::to_string(mInfo.channels) + " channels (1 to " +
                                std::to_string(SoundFormat::kMaxChannels) + " can be read)"));
  }
  if (mInfo.samplerate < SoundFormat::kMinSampleRate ||
      mInfo.samplerate > SoundFormat::kMaxSampleRate) {
    return tl::unexpected(error("its sample rate is " + std::to_string(mInfo.samplerate) + " Hz (" +
                                std::to_string(SoundFormat::kMinSampleRate) + " to " +
                                std::to_string(SoundFormat::kMaxSampleRate) + " can be read)"));
  }
  return {};
}

std::optional<std::int64_t> SoundFileReader::frames() const noexcept {
  return mInfo.frames < SF_COUNT_MAX ? std::optional<std::int64_t>(mInfo.frames) : std::nullopt;
}

Error SoundFileReader::error(const std::string& why) const {
  return {"cannot read " + mPath.string() + ": " + why};
}

SoundFileReader::Part SoundFileReader::read(std::span<float> room) {
  if (mHasFailed) {
    return {};
  }
  const auto channels = static_cast<std::size_t>(mInfo.channels);
  const std::size_t wanted = room.size() / channels;
  const sf_count_t got =
      sf_readf_float(mHandle.get(), room.data(), static_cast<sf_count_t>(wanted));
  Part part{static_cast<std::size_t>(std::max<sf_count_t>(got, 0)), {}};
  const auto samples = room.first(part.frames * channels);
  const auto bad =
      std::find_if(samples.begin(), samples.end(), [](float each) { return !std::isfinite(each); });
  const auto behind = [](std::int64_t frame) { return " at sample " + std::to_string(frame); };
  if (bad != samples.end()) {
    const auto index = static_cast<std::size_t>(bad - samples.begin());
    part.frames = index / channels;
    part.error = error("not a number" + behind(mPosition + static_cast<std::int64_t>(part.frames)) +
                       " of channel " + std::to_string(index % channels + 1));
  } else if (part.frames < wanted) {
    const std::int64_t end = mPosition + got;
    const std::string why = mHandle.failure();
    if (!why.empty()) {
      part.error = error("it is damaged" + behind(end) + " (" + why + ")");
    } else if (mBytesMissing != 0) {
      part.error = error("it is cut off" + behind(end) + ", " + std::to_string(mBytesMissing) +
                         " bytes before its end");
    } else if (const auto whole = frames(); whole && end < *whole) {
      part.error = error("it is cut off" + behind(end) + " of " + std::to_string(*whole));
    }
  }
  mPosition += static_cast<std::int64_t>(part.frames);
  mHasFailed = part.error.has_value();
  return part;
}

}  // namespace velor::audio
