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

/// For each channel of a device, in the device's order, the program's channel that goes
/// there or comes from there; -1, and what the program does not have, is none.
using AudioChannelMap = std::vector<std::int32_t>;

/// Finds the program's channels among those of a device, in one cycle after the other.
/// Realtime-safe: yes.
class AudioRouting {
 public:
  /// The program's channels; null where no channel of the device has one. A channel that
  /// goes to several of the device is the first of them, until `spread`.
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

  /// After an output has rendered: copies to the others of the device what the first got.
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
