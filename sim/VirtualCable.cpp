// SPDX-License-Identifier: MIT
#include "sim/VirtualCable.h"

#include <algorithm>
#include <cmath>

namespace velor::audio {
namespace {

std::size_t slot(std::int64_t position) noexcept {
  return static_cast<std::size_t>(position) % VirtualCable::kFrames;
}

}  // namespace

VirtualCable::VirtualCable(const VirtualAudioDevice& source, std::uint64_t delay)
    : mSource(source),
      mChannels(source.parameters().outputs),
      mDelay(delay),
      mSamples(std::make_unique<std::atomic<float>[]>(mChannels * kFrames)) {}

void VirtualCable::write(std::int64_t position, std::uint32_t frames,
                         std::span<float* const> channels) noexcept {
  const std::int64_t end = mEnd.load(std::memory_order_relaxed);
  const std::int64_t oldest = position - static_cast<std::int64_t>(kFrames);
  for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
    std::atomic<float>* samples = &mSamples[channel * kFrames];
    for (std::int64_t i = std::max(end, oldest); i < position; ++i) {
      samples[slot(i)].store(0.0F, std::memory_order_relaxed);
    }
    for (std::uint32_t i = 0; i < frames; ++i) {
      samples[slot(position + i)].store(channels[channel][i], std::memory_order_relaxed);
    }
  }
  mEnd.store(position + frames, std::memory_order_release);
}

float VirtualCable::at(std::uint32_t channel, std::int64_t position) const noexcept {
  const std::int64_t end = mEnd.load(std::memory_order_acquire);
  if (position >= end || position < end - static_cast<std::int64_t>(kFrames)) {
    return 0.0F;
  }
  return mSamples[channel * kFrames + slot(position)].load(std::memory_order_relaxed);
}

void VirtualCable::read(std::uint64_t hostTime, double rate, std::uint32_t frames,
                        std::span<float* const> channels) const noexcept {
  const DeviceTimeline source = mSource.timeline().load();
  const double first = source.sampleAt(hostTime - mDelay);
  const double step = source.rate / rate;
  for (std::uint32_t channel = 0; channel < channels.size(); ++channel) {
    for (std::uint32_t i = 0; i < frames; ++i) {
      float& out = channels[channel][i];
      const double position = first + i * step;
      if (channel >= mChannels) {
        out = 0.0F;
      } else {
        const double before = std::floor(position);
        const auto index = static_cast<std::int64_t>(before);
        const auto part = static_cast<float>(position - before);
        out = at(channel, index) * (1 - part) + at(channel, index + 1) * part;
      }
    }
  }
}

}  // namespace velor::audio
