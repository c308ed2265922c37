// SPDX-License-Identifier: MIT
#pragma once

#include "Kv-Appkit/KVException.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// Makes the call. When it fails, makes it once more and raises with the status of the
/// second call. If that one succeeds, `undo` takes back what it made.
template <class Call, class Undo>
void KVMIDICheck(const char* method, const Call& call, const Undo& undo) {
  if (call() != 0) {
    const midi::OSStatus status = call();
    if (status == 0) {
      undo();
    }
    KVRaiseServiceError(method, status);
  }
}

template <class Call>
void KVMIDICheck(const char* method, const Call& call) {
  KVMIDICheck(method, call, [] {});
}

}  // namespace velor
