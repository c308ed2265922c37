// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace velor {

/// Where frames of LTC go so that they follow a time that comes in, measured in
/// samples of the device's own count: so its clock may drift from that of the host.
/// A value; it is told of each call and says what to write.
///
/// The time comes every two frames. Each call writes a batch of frames, of which the
/// next call overwrites all but the first two; those two are made as long as it takes
/// to meet the next target, so that no phase error outlasts them.
struct LTCPhaseLock {
  /// Half of the interval between calls may be off one frame by less than this.
  static constexpr double kMaxJitter = 301;  // samples
  /// So many calls in lock may find that the last cycle of the device played nothing.
  /// From the next one on nothing is written until the lock is made anew.
  static constexpr std::uint32_t kMaxWithoutRead = 15;

  struct Call {
    double target;         ///< sample at which the first frame must enter the device
    double frameDuration;  ///< seconds of a frame of the format
    double sampleRate;
    std::uint32_t maxFrameSamples;  ///< that a batch has room for
    bool wasRead;                   ///< the device's last cycle played what was written
  };
  /// Frames of a batch that the next call overwrites, unless the device has begun them.
  static constexpr std::uint32_t kStanding = 4;
  struct Batch {
    std::uint64_t start;         ///< sample of the first frame
    std::uint32_t frameSamples;  ///< length of each frame
    bool isRestart;              ///< what was written before is void
    /// Lengths of the frames that stand there, from `start` on; 0 for none.
    std::array<std::uint32_t, kStanding> standing;
    /// Length of the others when so many of those stay.
    std::array<std::uint32_t, kStanding + 1> behind;

    /// How many frames that stand there have to stay, because the device has read into
    /// them, up to `readEnd`: over another length the bits of such a frame would not
    /// meet. The frame behind a single one takes the whole change of length then. None
    /// where it would be no frame any more.
    std::uint32_t keptFrames(std::uint64_t readEnd) const noexcept;
    /// Length of a frame with so many kept.
    std::uint32_t samplesOf(std::uint32_t frame, std::uint32_t kept) const noexcept {
      return frame < kept              ? standing[frame]
             : kept == 1 && frame == 1 ? 2 * frameSamples - standing[0]
                                       : behind[kept];
    }
    /// Sample of a frame with so many kept.
    std::uint64_t startOf(std::uint32_t frame, std::uint32_t kept) const noexcept;
  };

  /// The batch to write now; none when writing has to end, because nobody plays it.
  /// `target` must not be negative. Realtime-safe: yes.
  std::optional<Batch> advance(const Call& call) noexcept;

  /// So many frames of the batch stay: the next one begins behind those that play.
  void keep(const Batch& batch, std::uint32_t kept) noexcept;

  /// Nothing is known of a stream, as in the beginning.
  bool isIdle() const noexcept { return lastTimestamp == 0; }

  double lastTimestamp = 0;      ///< samples; the target of the call before
  double nextGeneratorTime = 0;  ///< samples; where the next call's first frame should start
  double weightedFrameLen = 0;   ///< samples; smoothed length of two frames
  std::array<std::uint32_t, kStanding> standing{};  ///< samples of the frames from there on
  std::uint32_t numWithoutRead = 0;

 private:
  Batch restart(const Call& call) noexcept;
};

}  // namespace velor
