// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/file/SoundFileHandle.h"
#include "platform/audio/file/SoundFormat.h"
#include "platform/host/Error.h"
#include "platform/store/ReplacementFile.h"

namespace velor::audio {

/// Writes a WAV, W64 or FLAC file, by the extension of its name. It lies under a name
/// of its own beside the file whose place it takes, until `finish`: a disk that fills
/// up, or an end before, leaves the old file as it was and no other.
///
/// Belongs to one thread; it waits for the disk. Realtime-safe: no.
class SoundFileWriter {
 public:
  /// Fails when no disk can hold such a file of so many frames: for its extension, the
  /// format or the length.
  static Expected<> check(const std::filesystem::path& path, const SoundFormat& format,
                          std::int64_t frames);

  /// Whether a signal of that peak would be all zeros.
  static bool isSilent(float peak, SampleEncoding encoding);

  /// `frames` is the most that will come.
  static Expected<std::unique_ptr<SoundFileWriter>> create(const std::filesystem::path& path,
                                                           const SoundFormat& format,
                                                           std::int64_t frames);

  /// Interleaved, whole frames, 1.0 at full scale; what is beyond is cut there. Integers
  /// are the nearest ones, without dither, and of the same size on both sides of zero.
  [[nodiscard]] Expected<> write(std::span<const float> samples);

  /// Makes the file what its name promises. Once, and last.
  [[nodiscard]] Expected<> finish();

 private:
  SoundFileWriter(const std::filesystem::path& path, const SoundFormat& format, SF_INFO info,
                  store::ReplacementFile replacement);

  Error error(const std::string& why) const;

  const std::filesystem::path mPath;
  const SampleEncoding mEncoding;
  std::vector<std::int16_t> mShorts;
  std::vector<std::int32_t> mInts;
  std::vector<float> mFloats;
  store::ReplacementFile mReplacement;
  SoundFileHandle mHandle;  // ends before the file that it writes
};

}  // namespace velor::audio
