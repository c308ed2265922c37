// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Velor/app/VLBigTimecodeOutlet.h"
#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/clock/VLClock.h"

namespace velor {

/// The controller's hold on the big timecode window, which is made when it is first shown
/// and then kept. Queue: main.
class VLBigTimecode {
 public:
  void popOut(VLMainWindowOutlet& window, VLClock& clock);

  // Nothing before there is a window.
  void setMainTime(const SMPTETime& time) {
    if (mWindow != nullptr) {
      mWindow->setMainTime(time);
    }
  }
  void setClockStatus(VLClockStatus status) {
    if (mWindow != nullptr) {
      mWindow->setClockStatus(status);
    }
  }

 private:
  std::shared_ptr<VLBigTimecodeOutlet> mWindow;
};

}  // namespace velor
