// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace velor {

/// Places frames of LTC so that they follow an incoming time. It counts in samples of the
/// device, whose clock may drift from the host's. A value; each call says what to write.
///
/// The time comes every two frames. Each call writes a batch of six frames; the next call
/// replaces the last four, except those that the device has begun to read: a frame that
/// changed in the middle would mix two times. Two of the frames that are written absorb
/// the whole phase error.
struct LTCPhaseLock {
  /// Frames that a call writes.
  static constexpr std::uint32_t kFramesPerBatch = 6;
  /// Frames that play before the next call.
  static constexpr std::uint32_t kFramesPerCall = 2;
  /// Half of the interval between two calls may differ from one frame by less than this.
  static constexpr double kMaxJitter = 301;  // samples
  /// After this many calls in lock that found the device's last cycle silent, nothing is
  /// written until the stream starts again.
  static constexpr std::uint32_t kMaxWithoutRead = 15;

  struct Call {
    double target;         ///< sample at which the first frame must enter the device; not negative
    double frameDuration;  ///< seconds per frame of the format
    double sampleRate;
    std::uint32_t maxFrameSamples;  ///< room for each frame of a batch
    std::uint64_t readEnd;          ///< end of the device's last cycle; 0 when it was silent
  };
  struct Batch {
    std::uint32_t firstFrame;    ///< frames before it stay as they are
    std::uint64_t start;         ///< sample of that first frame
    std::uint32_t frameSamples;  ///< length of each frame that is written

    std::uint32_t frames() const noexcept { return kFramesPerBatch - firstFrame; }
    bool operator==(const Batch&) const = default;
  };

  /// The batch to write now; none when writing has ended because nobody plays it.
  /// Realtime-safe: yes.
  std::optional<Batch> advance(const Call& call) noexcept;

  /// No time has come in since the stream stopped.
  bool isIdle() const noexcept { return lastTimestamp == 0; }

  /// Nothing is written any more, because nobody plays it.
  bool isGivenUp() const noexcept { return numWithoutRead > kMaxWithoutRead; }

  double lastTimestamp = 0;      ///< samples; the target of the previous call
  double nextGeneratorTime = 0;  ///< samples; where the next call's first frame should start
  double weightedFrameLen = 0;   ///< samples; smoothed length of two frames
  std::uint32_t numWithoutRead = 0;

 private:
  using Lengths = std::array<std::uint32_t, kFramesPerBatch - kFramesPerCall>;

  std::optional<Batch> continued(const Call& call) noexcept;
  Batch restarted(const Call& call) noexcept;
  Batch placed(double start, Lengths standing, std::uint32_t firstFrame,
               double frameSamples) noexcept;

  Lengths mStanding{};  // samples of the frames that stand from `nextGeneratorTime` on
};

}  // namespace velor
