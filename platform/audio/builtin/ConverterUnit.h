// SPDX-License-Identifier: MIT
#pragma once

#include "platform/audio/builtin/EffectUnit.h"

namespace velor::audio {

/// The source of a graph: it hands on what its callback gives. Units know only
/// one kind of format, so that there is nothing to convert.
class ConverterUnit final : public EffectUnit {
 public:
  OSStatus render(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                  const AudioTimeStamp& time, std::uint32_t /*bus*/, std::uint32_t frames,
                  AudioBufferList& data) noexcept override {
    return input().pull(realtime, flags, time, frames, data);
  }
};

}  // namespace velor::audio
