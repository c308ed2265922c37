// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/host/LatestValue.h"
#include "platform/media/gstreamer/SoundFold.h"

namespace velor::media {

/// Decoded sound on its way from the decoder's thread to an audio cycle, each frame at its place
/// in the clip: whoever reads needs not know of seeks. It holds the latest stretch without
/// a gap, at most kSeconds of it; frames before that are forgotten. One writer, one reader;
/// neither waits.
class SoundRing {
 public:
  /// Long enough that the reader is never near the frames that are overwritten.
  static constexpr double kSeconds = 2;

  /// A block that is so little off the end of the one before follows on it.
  static constexpr double kSlackSeconds = 2e-3;

  /// Frames of the clip from `begin` to before `end`.
  struct Range {
    std::int64_t begin = 0;
    std::int64_t end = 0;
  };

  /// `sides`: of each channel. `rate`: frames a second of the clip.
  SoundRing(std::vector<SoundSide> sides, double rate);

  std::uint32_t channels() const noexcept { return mChannels; }
  const std::vector<SoundSide>& sides() const noexcept { return mSides; }
  double rate() const noexcept { return mRate; }

  /// Another place than the end of what it holds begins a new stretch. The writer's thread.
  void write(std::int64_t first, std::span<float* const> channels, std::size_t frames) noexcept;

  /// What there is to read now. The reader's thread. Realtime-safe: yes.
  Range range() noexcept { return mRange.load(); }
  /// Interleaved; zeros where it holds none. The reader's thread. Realtime-safe: yes.
  void read(std::int64_t first, std::size_t frames, float* interleaved) noexcept;

 private:
  std::size_t slot(std::int64_t frame) const noexcept {
    return (static_cast<std::size_t>(frame) & (mCapacity - 1)) * mChannels;
  }

  const std::vector<SoundSide> mSides;
  const std::uint32_t mChannels;
  const double mRate;
  const std::size_t mCapacity;  // frames, a power of two
  // Atomic, since after a jump new frames can come to slots that a late cycle still reads.
  std::vector<std::atomic<float>> mSamples;
  Range mWritten;  // the writer's
  host::LatestValue<Range> mRange;
};

}  // namespace velor::media
