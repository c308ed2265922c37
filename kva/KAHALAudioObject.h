// SPDX-License-Identifier: MIT
#pragma once

#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/AudioTypes.h"

namespace velor {

/// An object of the audio service in force: the system, a device, a stream.
///
/// The wrappers of this folder raise KVException "err" where the service fails:
/// "Error: ", the method and the status. Any thread. Realtime-safe: no.
class KAHALAudioObject {
 public:
  explicit KAHALAudioObject(audio::AudioObjectID objectID) noexcept : _objectID(objectID) {}
  virtual ~KAHALAudioObject() = default;
  KAHALAudioObject(const KAHALAudioObject&) = delete;
  KAHALAudioObject& operator=(const KAHALAudioObject&) = delete;

  audio::AudioObjectID objectID() const noexcept { return _objectID; }

 protected:
  template <class Value>
  Value property(
      const char* method, audio::AudioObjectPropertySelector selector,
      audio::AudioObjectPropertyScope scope = audio::kAudioObjectPropertyScopeGlobal) const {
    Value value{};
    KACheck(method,
            audio::service().AudioObjectGetPropertyData(_objectID, {selector, scope}, &value));
    return value;
  }

 private:
  const audio::AudioObjectID _objectID;
};

}  // namespace velor
