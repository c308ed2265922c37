// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundFold.h"

#include <algorithm>

namespace velor::media {
namespace {

// What belongs to both sides is as loud on two speakers as it was on its own.
constexpr float kHalfPower = 0.70710678F;

}  // namespace

SoundFold::SoundFold(const std::vector<SoundSide>& sides, std::uint32_t outputs)
    : mChannels(static_cast<std::uint32_t>(sides.size())),
      mOutputs(outputs),
      mGains(std::size_t{mChannels} * outputs) {
  for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
    const auto gain = [&](std::uint32_t output) -> float& {
      return mGains[std::size_t{output} * mChannels + channel];
    };
    if (channel < outputs) {
      gain(channel) = 1;
    } else if (outputs == 1) {
      gain(0) = 1;
    } else if (sides[channel] == SoundSide::both) {
      gain(0) = gain(1) = kHalfPower;
    } else {
      gain(sides[channel] == SoundSide::left ? 0 : 1) = 1;
    }
  }
  float loudest = 1;
  for (std::uint32_t output = 0; output < outputs; ++output) {
    float sum = 0;
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
      sum += mGains[std::size_t{output} * mChannels + channel];
    }
    loudest = std::max(loudest, sum);
  }
  std::ranges::for_each(mGains, [loudest](float& gain) { gain /= loudest; });
}

void SoundFold::apply(const float* from, std::size_t frames, float* to) const noexcept {
  for (std::size_t i = 0; i < frames; ++i, from += mChannels) {
    const float* gain = mGains.data();
    for (std::uint32_t output = 0; output < mOutputs; ++output, gain += mChannels) {
      float sum = 0;
      for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
        sum += gain[channel] * from[channel];
      }
      *to++ = sum;
    }
  }
}

}  // namespace velor::media
