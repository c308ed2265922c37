// SPDX-License-Identifier: MIT
#pragma once

#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {

/// An object of the current audio service: the system or a device.
///
/// The classes of this folder raise KVException "err" where the service fails:
/// "Error: ", the method and the status. Any thread. Realtime-safe: no.
class KAHALAudioObject {
 public:
  explicit KAHALAudioObject(audio::AudioObjectID objectID) noexcept : _objectID(objectID) {}
  virtual ~KAHALAudioObject() = default;
  KAHALAudioObject(const KAHALAudioObject&) = delete;
  KAHALAudioObject& operator=(const KAHALAudioObject&) = delete;

  audio::AudioObjectID objectID() const noexcept { return _objectID; }

 private:
  const audio::AudioObjectID _objectID;
};

}  // namespace velor
