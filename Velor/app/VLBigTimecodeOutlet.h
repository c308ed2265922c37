// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The big timecode window, as the controller knows it. Queue: main.
class VLBigTimecodeOutlet {
 public:
  virtual ~VLBigTimecodeOutlet() = default;

  /// Comes with every frame of a running clock.
  virtual void setMainTime(const SMPTETime& time) = 0;
  virtual void setClockStatus(VLClockStatus status) = 0;
  /// Also brings it to the front.
  virtual void showWindow() = 0;
};

}  // namespace velor
