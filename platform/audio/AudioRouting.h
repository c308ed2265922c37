// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velor::audio {

/// For each channel of a device, in the device's order, the program's channel that it plays
/// or records; none for -1 and for a channel that the program does not have.
using AudioChannelMap = std::vector<std::int32_t>;

/// Finds the program's channels among those of a device, once in each cycle.
/// Realtime-safe: yes.
class AudioRouting {
 public:
  /// The buffers of the program's channels; null for one without a channel of the device.
  /// One that goes to several channels of the device is the first of these until `spread`.
  std::span<float* const> program(std::span<float* const> device, std::span<const std::int32_t> map,
                                  std::uint32_t channels) noexcept {
    std::fill_n(mProgram.begin(), channels, nullptr);
    for (std::size_t i = std::min(device.size(), map.size()); i-- > 0;) {
      const auto channel = static_cast<std::uint32_t>(map[i]);
      if (channel < channels && device[i] != nullptr) {
        mProgram[channel] = device[i];
      }
    }
    return {mProgram.data(), channels};
  }

  /// After an output has rendered: copies the first channel to the other ones.
  void spread(std::span<float* const> device, std::span<const std::int32_t> map,
              std::uint32_t channels, std::uint32_t frames) const noexcept {
    for (std::size_t i = 0; i < std::min(device.size(), map.size()); ++i) {
      const auto channel = static_cast<std::uint32_t>(map[i]);
      if (channel < channels && device[i] != nullptr && device[i] != mProgram[channel]) {
        std::copy_n(mProgram[channel], frames, device[i]);
      }
    }
  }

 private:
  std::array<float*, kMaxChannels> mProgram{};
};

}  // namespace velor::audio
