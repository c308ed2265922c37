// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/AudioGeneratorRefCon.h"

#include <algorithm>
#include <cstddef>
#include <mutex>

namespace velor {
namespace {

// Calls copy(offset in the ring, offset in the samples, count) for the stretches in
// which `count` places from `start` on lie in a ring of `length`.
template <class Copy>
void eachStretch(std::uint64_t start, std::size_t count, std::size_t length, const Copy& copy) {
  std::size_t place = static_cast<std::size_t>(start % length);
  for (std::size_t done = 0; done < count;) {
    const std::size_t stretch = std::min(count - done, length - place);
    copy(static_cast<std::ptrdiff_t>(place), static_cast<std::ptrdiff_t>(done), stretch);
    done += stretch;
    place = 0;
  }
}

}  // namespace

void AudioGeneratorRefCon::write(std::uint64_t start, std::span<const float> samples) noexcept {
  if (ring.empty()) {
    return;
  }
  eachStretch(start, samples.size(), ring.size(),
              [&](std::ptrdiff_t place, std::ptrdiff_t done, std::size_t stretch) {
                std::copy_n(samples.begin() + done, stretch, ring.begin() + place);
              });
  writeEnd = start + samples.size();
}

void AudioGeneratorRefCon::clear() noexcept {
  std::fill(ring.begin(), ring.end(), 0.0F);
  writeEnd = 0;
}

void AudioGeneratorRefCon::read(std::uint64_t start, std::span<float> samples) const noexcept {
  eachStretch(start, samples.size(), ring.size(),
              [&](std::ptrdiff_t place, std::ptrdiff_t done, std::size_t stretch) {
                std::copy_n(ring.begin() + place, stretch, samples.begin() + done);
              });
}

audio::OSStatus AudioGeneratorRefCon::render(const host::RealtimeContext& /*realtime*/,
                                             void* refCon, const audio::AudioTimeStamp& timeStamp,
                                             std::uint32_t frames,
                                             std::span<float* const> channels) noexcept {
  if (refCon == nullptr) {
    return kNoReference;
  }
  if ((timeStamp.mFlags & audio::kAudioTimeStampSampleTimeValid) == 0) {
    return kNoSampleTime;
  }
  auto& self = *static_cast<AudioGeneratorRefCon*>(refCon);
  const std::lock_guard lock(self.lock);
  const auto position = static_cast<std::uint64_t>(std::max(0.0, timeStamp.mSampleTime));
  const std::uint64_t end = position + frames;
  self.lastReadEnd = 0;
  audio::OSStatus result = kNothingToPlay;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    float* const out = channels[i];
    if (i > 0 || end > self.writeEnd) {
      std::fill_n(out, frames, 0.0F);
      continue;
    }
    self.read(position, {out, frames});  // what was written has a ring
    self.lastReadEnd = end;
    result = 0;
  }
  return result;
}

}  // namespace velor
