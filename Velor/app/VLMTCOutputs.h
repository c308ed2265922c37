// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"

namespace velor {

/// The MIDI destinations that the clock is to send to, over their absence: one
/// that disappears is taken out of the clock and remembered by its unique id, and
/// is switched on again when it returns.
///
/// Queue: main.
class VLMTCOutputs {
 public:
  VLMTCOutputs(KVMIDICore& core, VLClock& clock);

  void enable(std::shared_ptr<KVMIDIEndpoint> destination);

  struct Output {
    std::string name;
    bool present;
  };
  /// All that are enabled, in the order in which they were.
  std::vector<Output> outputs() const;

 private:
  struct Entry {
    midi::MIDIUniqueID uniqueID;
    std::string name;
    std::shared_ptr<KVMIDIEndpoint> endpoint;  // null while it is away
  };

  void destinationsChanged();

  KVMIDICore& mCore;
  VLClock& mClock;
  std::vector<Entry> mEntries;
  const KVObserverToken mObserver;
};

}  // namespace velor
