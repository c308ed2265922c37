// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/media/AudioTap.h"

namespace velor {

/// Folds all channels of a track into one and silences the others. The sum is divided by the
/// square root of the number of channels, so that sounds that differ keep their loudness; what
/// is the same on two channels comes out 3 dB louder. There is no limiter.
class VLMonoSumTap final : public media::AudioTap {
 public:
  /// The sound passes unchanged, as with any channel that the track does not have.
  static constexpr std::int32_t kNoSumming = -1;

  /// The channel that gets the sum, from 0. Takes effect with the next block. Any thread.
  std::int32_t summingMode() const noexcept { return mSummingMode.load(std::memory_order_relaxed); }
  void setSummingMode(std::int32_t mode) noexcept {
    mSummingMode.store(mode, std::memory_order_relaxed);
  }

  /// A block that is shorter than what was asked for passes unchanged.
  void process(const host::RealtimeContext& realtime, std::span<float* const> channels,
               std::size_t framesAsked, std::size_t framesDelivered) noexcept override;

 private:
  std::atomic<std::int32_t> mSummingMode{0};
  static_assert(std::atomic<std::int32_t>::is_always_lock_free);
};

}  // namespace velor
