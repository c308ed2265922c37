// SPDX-License-Identifier: MIT
#pragma once

#include <samplerate.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "platform/host/LatestValue.h"
#include "platform/host/Realtime.h"
#include "platform/media/gstreamer/PlayerTimeline.h"
#include "platform/media/gstreamer/SoundFold.h"
#include "platform/media/gstreamer/SoundRing.h"

namespace velor::media {

/// What the owner of a voice tells it while it plays.
struct SoundControl {
  host::LatestValue<PlayerTimeline> timeline;
  std::atomic<float> volume{1};
};

/// The sound of a clip for the cycles of one device: each sample at the place in the clip that
/// the timeline gives to the moment at which it leaves. It follows the device's clock and the
/// timeline's rate by resampling; a small error is pulled in, a larger one is a jump, faded
/// out and in.
class SoundVoice {
 public:
  /// A larger error than this is a jump, seconds.
  static constexpr double kLargestPull = 1.5e-3;

  /// Plays on `channels` of a device of `deviceRate` frames a second; at most those of the ring.
  /// The ring and the control outlive it.
  SoundVoice(SoundRing& ring, SoundControl& control, std::uint32_t channels, double deviceRate);

  /// Between the cycle and the connector, frames of the device. Any thread.
  void setLatency(std::uint32_t frames) noexcept { mLatency = frames; }

  /// Fills the channels, which hold zeros; null ones are left out. `hostTime` is that of the
  /// first frame. Realtime-safe: yes.
  void render(const host::RealtimeContext& realtime, std::uint64_t hostTime, std::uint32_t frames,
              std::span<float* const> channels) noexcept;

 private:
  // Frames that are rendered at once, and the length of a fade.
  static constexpr std::uint32_t kSlice = 256;
  // Frames of the clip that the converter is offered at once.
  static constexpr std::uint32_t kOffered = 64;
  // Seconds in which an error would be pulled in at its first speed.
  static constexpr double kPullTime = 0.25;

  struct EndConverter {
    void operator()(SRC_STATE* state) const noexcept { src_delete(state); }
  };

  void renderSlice(const PlayerTimeline& timeline, std::uint64_t hostTime, std::uint32_t frames,
                   std::uint32_t offset, std::span<float* const> channels) noexcept;
  void convert(std::uint32_t frames, double step) noexcept;
  void mix(std::uint32_t frames, std::uint32_t offset, float gain,
           std::span<float* const> channels) noexcept;

  SoundRing& mRing;
  SoundControl& mControl;
  const std::uint32_t mChannels;
  const SoundFold mFold;
  const double mDeviceRate;
  std::atomic<std::uint32_t> mLatency{0};

  // The audio cycle's own.
  struct {
    std::unique_ptr<SRC_STATE, EndConverter> converter;
    std::vector<float> read;  // all channels of the clip
    std::vector<float> input;
    std::vector<float> output;
    bool isSounding = false;
    double at = 0;          // frame of the clip that is the next to be heard
    std::int64_t next = 0;  // frame that the converter is the next to take
    double step = 1;        // frames of the clip for a frame of the device
    float gain = 0;         // after the last frame
  } rt;
};

}  // namespace velor::media
