// SPDX-License-Identifier: MIT
#include "Velor/media/VLMonoSumTap.h"

#include <cmath>
#include <utility>

namespace velor {

void VLMonoSumTap::process(const host::RealtimeContext& /*realtime*/,
                           std::span<float* const> channels, std::size_t framesAsked,
                           std::size_t framesDelivered) noexcept {
  const std::int32_t mode = summingMode();
  if (mode < 0 || static_cast<std::size_t>(mode) >= channels.size() ||
      framesDelivered != framesAsked) {
    return;
  }
  const float gain = 1.0F / std::sqrt(static_cast<float>(channels.size()));
  for (std::size_t i = 0; i < framesDelivered; ++i) {
    float sum = 0;
    for (float* const channel : channels) {
      sum += std::exchange(channel[i], 0.0F);
    }
    channels[static_cast<std::size_t>(mode)][i] = sum * gain;
  }
}

}  // namespace velor
