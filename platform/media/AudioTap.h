// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>

#include "platform/host/Realtime.h"

namespace velor::media {

/// Sees, and may change, each block of the decoded sound of one track.
class AudioTap {
 public:
  virtual ~AudioTap() = default;

  /// The block is changed in place. `channels` are as many buffers as the track has channels,
  /// each with single-precision samples of `framesDelivered` frames; full scale is 1.
  /// `framesAsked` is what the player needed: it is more at a clip's end alone.
  /// Thread: one of the player's, one block at a time.
  virtual void process(const host::RealtimeContext& realtime, std::span<float* const> channels,
                       std::size_t framesAsked, std::size_t framesDelivered) noexcept = 0;
};

}  // namespace velor::media
