// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/audio/builtin/VirtualAudioDevice.h"

namespace velor::audio {

/// Carries what one virtual device plays to the inputs of another with another clock:
/// through host time, at which the samples leave the one and come in at the other, with
/// linear interpolation. One device writes and one reads, neither waits for the other.
class VirtualCable final : public VirtualAudioDevice::Cable {
 public:
  /// Samples of each channel that it remembers.
  static constexpr std::size_t kFrames = 65536;

  /// `source` writes. `delay`: ns from connector to connector; longer than the lateness
  /// of the writing device's cycles, and than a sample.
  VirtualCable(const VirtualAudioDevice& source, std::uint64_t delay);

  /// Between these frames and the ones before there is silence.
  void write(std::int64_t position, std::uint32_t frames,
             std::span<float* const> channels) noexcept override;

  /// Silent where nothing was written, or no longer remembered.
  void read(std::uint64_t hostTime, double rate, std::uint32_t frames,
            std::span<float* const> channels) const noexcept override;

 private:
  float at(std::uint32_t channel, std::int64_t position) const noexcept;

  const VirtualAudioDevice& mSource;
  const std::uint32_t mChannels;
  const std::uint64_t mDelay;
  const std::unique_ptr<std::atomic<float>[]> mSamples;
  std::atomic<std::int64_t> mEnd{0};  // what lies before it is written
};

}  // namespace velor::audio
