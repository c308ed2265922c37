// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundRing.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <utility>

namespace velor::media {

SoundRing::SoundRing(std::vector<SoundSide> sides, double rate)
    : mSides(std::move(sides)),
      mChannels(static_cast<std::uint32_t>(mSides.size())),
      mRate(rate),
      mCapacity(std::bit_ceil(static_cast<std::size_t>(rate * kSeconds))),
      mSamples(mCapacity * mChannels) {}

void SoundRing::write(std::int64_t first, std::span<float* const> channels,
                      std::size_t frames) noexcept {
  // Some containers round the times of their blocks to a millisecond.
  const auto slack = static_cast<std::int64_t>(mRate * kSlackSeconds);
  if (std::abs(first - mWritten.end) <= slack) {
    first = mWritten.end;
  } else {
    mWritten = {first, first};
    mRange.store(mWritten);
  }
  for (std::size_t i = 0; i < frames; ++i) {
    std::atomic<float>* to = &mSamples[slot(first + static_cast<std::int64_t>(i))];
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
      to[channel].store(channels[channel][i], std::memory_order_relaxed);
    }
  }
  mWritten.end += static_cast<std::int64_t>(frames);
  // Half of it, so that the next blocks overwrite nothing that may be read.
  mWritten.begin =
      std::max(mWritten.begin, mWritten.end - static_cast<std::int64_t>(mCapacity / 2));
  mRange.store(mWritten);
}

void SoundRing::read(std::int64_t first, std::size_t frames, float* interleaved) noexcept {
  const Range there = mRange.load();
  for (std::size_t i = 0; i < frames; ++i) {
    const std::int64_t frame = first + static_cast<std::int64_t>(i);
    float* to = interleaved + i * mChannels;
    if (frame < there.begin || frame >= there.end) {
      std::fill_n(to, mChannels, 0.0F);
      continue;
    }
    const std::atomic<float>* from = &mSamples[slot(frame)];
    for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
      to[channel] = from[channel].load(std::memory_order_relaxed);
    }
  }
}

}  // namespace velor::media
