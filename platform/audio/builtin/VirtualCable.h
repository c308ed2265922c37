// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/audio/builtin/DeviceTimeline.h"
#include "platform/host/Seqlock.h"

namespace velor::audio {

/// Carries what one virtual device plays to the inputs of another, whose clock is
/// another one: through host time, at which the samples leave the one and come in
/// at the other. One device writes and one reads, neither waits for the other.
class VirtualCable {
 public:
  enum class Interpolation : std::uint8_t { nearest, linear };

  /// Samples of each channel that it remembers.
  static constexpr std::size_t kFrames = 65536;

  /// `source`: the count of the writing device. `delay`: ns from connector to
  /// connector; longer than the lateness of the writing device's cycles, and than
  /// a sample.
  VirtualCable(const host::Seqlocked<DeviceTimeline>& source, std::uint32_t channels,
               Interpolation interpolation, std::uint64_t delay);

  /// The frames from `position` on, on the count of the writing device, its latency
  /// included; what lies between this and the ones before is silence. Realtime-safe.
  void write(std::int64_t position, std::uint32_t frames,
             std::span<float* const> channels) noexcept;

  /// What comes in from the host time `hostTime` on, a sample every 1/`rate` s.
  /// Silent where nothing was written, or no longer remembered. Realtime-safe.
  void read(std::uint64_t hostTime, double rate, std::uint32_t frames,
            std::span<float* const> channels) const noexcept;

 private:
  float at(std::uint32_t channel, std::int64_t position) const noexcept;

  const host::Seqlocked<DeviceTimeline>& mSource;
  const std::uint32_t mChannels;
  const Interpolation mInterpolation;
  const std::uint64_t mDelay;
  const std::unique_ptr<std::atomic<float>[]> mSamples;
  std::atomic<std::int64_t> mEnd{0};  // what lies before it is written
};

}  // namespace velor::audio
