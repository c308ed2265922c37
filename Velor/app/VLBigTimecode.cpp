// SPDX-License-Identifier: MIT
#include "Velor/app/VLBigTimecode.h"

#include "platform/host/Host.h"

namespace velor {

void VLBigTimecode::popOut(VLMainWindowOutlet& window, VLClock& clock) {
  if (mWindow == nullptr) {
    mWindow = window.makeBigTimecodeWindow();
    if (mWindow == nullptr) {
      return;
    }
    host::current().mainQueue().async([weak = std::weak_ptr(mWindow), &clock] {
      if (const auto made = weak.lock()) {
        made->setClockStatus(clock.status());
        made->setMainTime(clock.time());
      }
    });
  }
  mWindow->showWindow();
}

}  // namespace velor
