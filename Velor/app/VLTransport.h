// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/KVSMPTETime.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLAppDelegate;
class VLClockDisplay;
class VLMainWindowOutlet;
class VLTimecodeViewOutlet;

/// Play, stop and jumps, with what they remember: the sync source that a play sets aside
/// and the stop restores, and the times of the starts, through which a stop of a clock that
/// stands goes back. Queue: main.
class VLTransport {
 public:
  /// What is passed outlives it.
  VLTransport(VLAppDelegate& app, VLMainWindowOutlet& window, VLTimecodeViewOutlet& counters,
              VLClockDisplay& display);
  VLTransport(const VLTransport&) = delete;
  VLTransport& operator=(const VLTransport&) = delete;

  void play();
  /// Of a clock that stands: back to the start before, or to zero with the control key.
  void stop();
  void setCurrentTime(const std::shared_ptr<KVSMPTETime>& time);

  std::shared_ptr<KVMIDIEndpoint> syncSourceAfterStop() const;
  void dropVanishedSyncSource();

  // --- from the clock

  void didStart(std::shared_ptr<KVSMPTETime> startTime);
  void didStop();
  /// Converts the times of the starts, by real time.
  void setType(std::uint32_t format);

 private:
  // The values that a play changed.
  struct StateBeforeStart {
    std::shared_ptr<KVMIDIEndpoint> syncSource;  // null: there was none
    bool armed;
  };

  void saveState();

  VLAppDelegate& mApp;
  VLMainWindowOutlet& mWindow;
  VLTimecodeViewOutlet& mCounters;
  VLClockDisplay& mDisplay;
  std::optional<StateBeforeStart> mStateBeforeStart;
  std::vector<std::shared_ptr<KVSMPTETime>> mStartTimes;  // the latest on top
  const host::WeakSelf<VLTransport> mSelf{this};
};

}  // namespace velor
