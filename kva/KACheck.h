// SPDX-License-Identifier: MIT
#pragma once

#include "Kv-Appkit/KVException.h"
#include "platform/audio/AudioTypes.h"

namespace velor {

/// Raises KVException "err" for a status of the audio service that is not 0.
inline void KACheck(const char* method, audio::OSStatus status) {
  if (status != 0) {
    KVRaiseServiceError(method, status);
  }
}

}  // namespace velor
