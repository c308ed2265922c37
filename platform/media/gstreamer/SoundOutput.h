// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/audio/AudioService.h"
#include "platform/host/Queue.h"
#include "platform/media/gstreamer/SoundVoice.h"

namespace velor::media {

/// Plays the sound of one clip on the default output of the audio service, and follows that
/// when another device becomes the default one. Without a device it is silent until one comes.
///
/// The clip's channels go to the device's in order; a single one goes to the first two. Those
/// that the device does not have are added to the first two.
class SoundOutput final : private audio::AudioDeviceListener {
 public:
  /// Made and ended on `queue`, on which it opens its streams. The ring and the control
  /// outlive it.
  SoundOutput(host::Queue& queue, SoundRing& ring, SoundControl& control);
  ~SoundOutput();
  SoundOutput(const SoundOutput&) = delete;
  SoundOutput& operator=(const SoundOutput&) = delete;

 private:
  struct Stream;

  void deviceChanged(const audio::AudioDeviceChange& change) override;
  void follow();

  audio::AudioService& mService;
  host::Queue& mQueue;
  SoundRing& mRing;
  SoundControl& mControl;
  // Jobs of the queue that outlive this do nothing.
  const std::shared_ptr<SoundOutput*> mSelf = std::make_shared<SoundOutput*>(this);
  std::unique_ptr<Stream> mStream;
};

}  // namespace velor::media
