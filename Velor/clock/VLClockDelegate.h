// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

namespace velor {

class KVMIDIEndpoint;
class VLClock;

/// Gets the clock's reports; override those of interest.
class VLClockDelegate {
 public:
  virtual ~VLClockDelegate() = default;

  /// The time was set, even to what it was. On the thread that set it.
  virtual void clockDidChangeStartTime(VLClock& /*clock*/) {}

  /// On the thread that started; on the main queue when MTC starts it.
  virtual void clockDidStartPlaying(VLClock& /*clock*/) {}

  /// On the thread that stopped; on the main queue when the stop time, the end of
  /// MTC or a disarm stops it.
  virtual void clockDidStopPlaying(VLClock& /*clock*/) {}

  /// The answer to every arm and disarm, by whether the clock is armed then. On
  /// the thread that asked.
  virtual void clockDidArm(VLClock& /*clock*/) {}
  virtual void clockDidDisarm(VLClock& /*clock*/) {}

  /// MTC of another format comes in; once until that changes. Main queue.
  virtual void clockReceivesWrongFormat(VLClock& /*clock*/, std::uint32_t /*format*/) {}

  /// Whether to look for a way from a destination back to the sync source, which
  /// sends a private message to every destination. On the thread that added the
  /// destination or set the source.
  virtual bool clockShouldCheckForMTCLoop(VLClock& /*clock*/) { return false; }

  /// Such a way was found. The source is null when the check has ended
  /// meanwhile. Main queue.
  virtual void clockDetectedMTCLoop(VLClock& /*clock*/,
                                    const std::shared_ptr<KVMIDIEndpoint>& /*source*/,
                                    const std::shared_ptr<KVMIDIEndpoint>& /*destination*/) {}
};

}  // namespace velor
