// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/audio/file/SoundFileHandle.h"
#include "platform/host/Error.h"
#include "platform/store/RegularFile.h"

namespace velor::audio {

/// Reads a WAV (RF64 too), W64 or FLAC file, whatever its name, of sample rates and
/// channels as SoundFormat has them. Belongs to one thread; it waits for the disk.
/// Realtime-safe: no.
class SoundFileReader {
 public:
  /// A file that is cut off can be read up to there.
  static Expected<std::unique_ptr<SoundFileReader>> open(const std::filesystem::path& path);

  int sampleRate() const noexcept { return mInfo.samplerate; }
  int channels() const noexcept { return mInfo.channels; }
  /// By the header; none where that does not tell.
  std::optional<std::int64_t> frames() const noexcept;

  struct Part {
    std::size_t frames = 0;      ///< that were read; 0 without an error at the end
    std::optional<Error> error;  ///< what is wrong with what comes after them
  };
  /// Fills the room with interleaved samples, 1.0 at full scale and finite. After an
  /// error no more comes.
  Part read(std::span<float> room);

 private:
  SoundFileReader(const std::filesystem::path& path, store::RegularFile file);

  Expected<> checkHeader() const;
  Error error(const std::string& why) const;

  const std::filesystem::path mPath;
  const store::RegularFile mFile;
  SF_INFO mInfo{};
  SoundFileHandle mHandle;
  bool mHasFailed = false;
  std::uint64_t mBytesMissing = 0;  // at the end, by the header
  std::int64_t mPosition = 0;       // frames
};

}  // namespace velor::audio
