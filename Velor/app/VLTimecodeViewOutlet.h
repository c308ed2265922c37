// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

#include "Velor/app/VLTimecodeViewDelegate.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The counters of the main window, as the controller knows them: what they show,
/// which is also what the user has typed there. Queue: main.
class VLTimecodeViewOutlet {
 public:
  virtual ~VLTimecodeViewOutlet() = default;

  virtual SMPTETime smpteTime() const = 0;
  virtual SMPTETime startTime() const = 0;
  virtual SMPTETime smpteOffset() const = 0;
  virtual SMPTETime stopTime() const = 0;
  virtual SMPTETime loopStartTime() const = 0;
  virtual SMPTETime loopEndTime() const = 0;

  virtual void setSmpteTime(const SMPTETime& time) = 0;
  /// Comes with every frame of a running clock.
  virtual void copyTime(const SMPTETime& time) = 0;
  virtual void setStartTime(const SMPTETime& time) = 0;
  virtual void setSmpteOffset(const SMPTETime& offset) = 0;
  virtual void setStopTime(const SMPTETime& time) = 0;
  virtual void setLoopStartTime(const SMPTETime& time) = 0;
  virtual void setLoopEndTime(const SMPTETime& time) = 0;
  virtual void setPlayMode(std::uint64_t playMode) = 0;
  virtual void setClockStatus(VLClockStatus status) = 0;
  virtual void setMainCounterIsEditable(bool editable) = 0;

  /// Held weakly.
  virtual void setDelegate(std::weak_ptr<VLTimecodeViewDelegate> delegate) = 0;
};

}  // namespace velor
