// SPDX-License-Identifier: MIT
#pragma once

#include "platform/audio/AudioTypes.h"
#include "platform/audio/builtin/RenderUnit.h"
#include "platform/host/LatestValue.h"

namespace velor::audio {

/// Where a unit takes its signal from: the unit that is connected, or else a
/// render callback.
class UnitInput {
 public:
  /// Not while anything renders.
  void connect(RenderUnit& source) noexcept { mSource = &source; }
  bool isConnected() const noexcept { return mSource != nullptr; }
  /// In force from the next cycle on.
  void setCallback(const AURenderCallbackStruct& callback) noexcept { mCallback.store(callback); }

  /// kAudioUnitErr_NoConnection when there is neither.
  OSStatus pull(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                const AudioTimeStamp& time, std::uint32_t frames, AudioBufferList& data) noexcept {
    if (mSource != nullptr) {
      return mSource->render(realtime, flags, time, 0, frames, data);
    }
    const AURenderCallbackStruct& callback = mCallback.load();
    return callback.inputProc == nullptr ? kAudioUnitErr_NoConnection
                                         : callback.inputProc(realtime, callback.inputProcRefCon,
                                                              flags, time, 0, frames, &data);
  }

 private:
  RenderUnit* mSource = nullptr;
  host::LatestValue<AURenderCallbackStruct> mCallback;
};

}  // namespace velor::audio
