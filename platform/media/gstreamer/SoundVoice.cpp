// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundVoice.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace velor::media {

SoundVoice::SoundVoice(SoundRing& ring, SoundControl& control, std::uint32_t channels,
                       double deviceRate)
    : mRing(ring),
      mControl(control),
      mChannels(channels),
      mFold(ring.sides(), channels),
      mDeviceRate(deviceRate) {
  int error = 0;
  rt.converter.reset(src_new(SRC_SINC_FASTEST, static_cast<int>(channels), &error));
  if (rt.converter == nullptr) {
    throw std::runtime_error(src_strerror(error));
  }
  rt.read.resize(std::size_t{kOffered} * ring.channels());
  rt.input.resize(std::size_t{kOffered} * channels);
  rt.output.resize(std::size_t{kSlice} * channels);
}

void SoundVoice::render(const host::RealtimeContext& /*realtime*/, std::uint64_t hostTime,
                        std::uint32_t frames, std::span<float* const> channels) noexcept {
  const PlayerTimeline timeline = mControl.timeline.load();
  for (std::uint32_t done = 0; done < frames; done += kSlice) {
    const double seconds = (done + mLatency.load()) / mDeviceRate;
    renderSlice(timeline, hostTime + static_cast<std::uint64_t>(seconds * 1e9),
                std::min(kSlice, frames - done), done, channels);
  }
}

// `hostTime` is that at which the first frame leaves.
void SoundVoice::renderSlice(const PlayerTimeline& timeline, std::uint64_t hostTime,
                             std::uint32_t frames, std::uint32_t offset,
                             std::span<float* const> channels) noexcept {
  const double due = static_cast<double>(timeline.at(hostTime)) * 1e-9 * mRing.rate();
  const double step = timeline.rate * mRing.rate() / mDeviceRate;
  const SoundRing::Range there = mRing.range();
  const bool isThere = timeline.rate > 0 && there.end > there.begin &&
                       due < static_cast<double>(there.end) &&
                       due + frames * step > static_cast<double>(there.begin);
  const double error = (due - rt.at) / mRing.rate();
  if (rt.isSounding && (!isThere || std::fabs(error) > kLargestPull)) {
    rt.isSounding = false;
    convert(frames, rt.step);
    mix(frames, offset, 0, channels);
    return;
  }
  if (!isThere) {
    return;
  }
  if (!rt.isSounding) {
    rt.isSounding = true;
    src_reset(rt.converter.get());
    rt.next = static_cast<std::int64_t>(std::floor(due));
    rt.at = static_cast<double>(rt.next);
    rt.step = step;
    // Nothing needs to be faded in at the clip's start, and a click there would be lost.
    rt.gain = due <= 0 ? mControl.volume.load(std::memory_order_relaxed) : 0;
  } else {
    rt.step = step * (1 + error / kPullTime / timeline.rate);
  }
  convert(frames, rt.step);
  mix(frames, offset, mControl.volume.load(std::memory_order_relaxed), channels);
}

// The converter's first frame of output lies on its first frame of input, so the place is known
// from the steps alone, however much the converter has taken beyond it.
void SoundVoice::convert(std::uint32_t frames, double step) noexcept {
  const double ratio = std::clamp(1 / step, 1.0 / 200, 200.0);
  src_set_ratio(rt.converter.get(), ratio);
  SRC_DATA data{};
  data.src_ratio = ratio;
  std::uint32_t made = 0;
  while (made < frames) {
    const bool isFolded = mChannels < mFold.channels();
    float* const read = isFolded ? rt.read.data() : rt.input.data();
    mRing.read(rt.next, kOffered, read);
    if (isFolded) {
      mFold.apply(read, kOffered, rt.input.data());
    }
    data.data_in = rt.input.data();
    data.input_frames = kOffered;
    data.data_out = &rt.output[std::size_t{made} * mChannels];
    data.output_frames = static_cast<long>(frames - made);
    const bool isDone = src_process(rt.converter.get(), &data) == 0;
    if (!isDone || (data.input_frames_used == 0 && data.output_frames_gen == 0)) {
      std::fill(rt.output.begin() + made * mChannels, rt.output.end(), 0.0F);
      break;
    }
    rt.next += data.input_frames_used;
    made += static_cast<std::uint32_t>(data.output_frames_gen);
  }
  rt.at += frames / ratio;
}

// From the gain of the last frame to `gain`, evenly.
void SoundVoice::mix(std::uint32_t frames, std::uint32_t offset, float gain,
                     std::span<float* const> channels) noexcept {
  const float rise = (gain - rt.gain) / static_cast<float>(frames);
  for (std::uint32_t channel = 0; channel < mChannels; ++channel) {
    if (channels[channel] == nullptr) {
      continue;
    }
    for (std::uint32_t i = 0; i < frames; ++i) {
      channels[channel][offset + i] = rt.output[std::size_t{i} * mChannels + channel] *
                                      (rt.gain + rise * static_cast<float>(i + 1));
    }
  }
  rt.gain = gain;
}

}  // namespace velor::media
