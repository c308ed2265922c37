// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundOutput.h"

#include <algorithm>

#include "platform/host/Log.h"

namespace velor::media {

using audio::AudioDirection;

struct SoundOutput::Stream {
  Stream(audio::AudioObjectID deviceID, double deviceRate, SoundRing& ring, SoundControl& control,
         std::uint32_t channels)
      : device(deviceID), rate(deviceRate), voice(ring, control, channels, deviceRate) {}

  const audio::AudioObjectID device;
  const double rate;
  SoundVoice voice;
  std::unique_ptr<audio::AudioDeviceStream> stream;  // the last, since it uses the voice
};

SoundOutput::SoundOutput(host::Queue& queue, SoundRing& ring, SoundControl& control)
    : mService(audio::service()), mQueue(queue), mRing(ring), mControl(control) {
  mService.addListener(*this);
  follow();
}

SoundOutput::~SoundOutput() {
  mService.removeListener(*this);
}

void SoundOutput::deviceChanged(const audio::AudioDeviceChange& /*change*/) {
  mQueue.async([weak = std::weak_ptr(mSelf)] {
    if (const auto self = weak.lock()) {
      (*self)->follow();
    }
  });
}

void SoundOutput::follow() {
  const audio::AudioObjectID device = mService.defaultDevice(AudioDirection::output);
  const auto description = mService.description(device);
  if (!description) {
    return;  // a stream whose device is missing goes on when that returns
  }
  const std::uint32_t outputs = description->channels(AudioDirection::output);
  if (mStream == nullptr || mStream->device != device || mStream->rate != description->sampleRate) {
    mStream.reset();
    if (outputs == 0 || !(description->sampleRate > 0)) {
      return;
    }
    const std::uint32_t channels = std::min(mRing.channels(), outputs);
    auto stream =
        std::make_unique<Stream>(device, description->sampleRate, mRing, mControl, channels);
    audio::AudioStreamRequest request;
    request.name = "Media Playback";
    request.channels = channels;
    for (std::uint32_t i = 0; i < outputs; ++i) {
      const bool isSpread = channels == 1 && i == 1;
      request.map.push_back(i < channels ? static_cast<std::int32_t>(i) : isSpread ? 0 : -1);
    }
    request.refCon = &stream->voice;
    request.proc = [](const host::RealtimeContext& realtime, void* voice,
                      const audio::AudioTimeStamp& time, std::uint32_t frames,
                      std::span<float* const> out) noexcept {
      static_cast<SoundVoice*>(voice)->render(realtime, time.mHostTime, frames, out);
    };
    stream->stream = mService.open(device, request);
    if (stream->stream == nullptr) {
      VELOR_LOG_WARNING("cannot play the sound of a clip on \"%s\"", description->name.c_str());
      return;
    }
    VELOR_LOG_INFO("playing the sound of a clip on \"%s\"", description->name.c_str());
    mStream = std::move(stream);
  }
  mStream->voice.setLatency(description->output.latency);
}

}  // namespace velor::media
