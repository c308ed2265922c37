// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLBigTimecode.h"
#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/app/VLTimecodeViewOutlet.h"
#include "Velor/clock/VLClock.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/WeakSelf.h"

namespace velor {

/// Shows the clock: in the main window, in the counters, in the big window, and to the OSC
/// targets.
/// Queue: main, where it also brings the clock's changes on other threads.
class VLClockDisplay {
 public:
  /// Shows nothing yet. The outlets outlive it.
  VLClockDisplay(VLClock& clock, VLMainWindowOutlet& window, VLTimecodeViewOutlet& counters);
  ~VLClockDisplay();
  VLClockDisplay(const VLClockDisplay&) = delete;
  VLClockDisplay& operator=(const VLClockDisplay&) = delete;

  // --- the steps of the launch; each shows its values now and after each change

  void bindPlayMode();
  void bindTimes();
  void bindFormat();
  void bindStatus();
  /// From then on each frame of a running clock is shown.
  void followFrames();

  void popOut() { mBigWindow.popOut(mWindow, mClock); }

  // --- on a clock that stands

  void showTime();
  /// After a jump, which the OSC targets hear too.
  void showJump();
  void showStartTime();
  void showRunning();
  void showStopped();
  void showArmed(bool armed);
  /// A format that fits what comes in ends the status of the wrong one, unannounced.
  void showStatus();

 private:
  // Calls now and after each change of the clock's property.
  void bind(std::string_view key, void (VLClockDisplay::*show)());
  void showPlayMode();
  void showLoopStartTime();
  void showLoopEndTime();
  void showSmpteOffset();
  void showStopTime();
  void showFormat();
  void showFrame(const SMPTETime& time);

  VLClock& mClock;
  VLMainWindowOutlet& mWindow;
  VLTimecodeViewOutlet& mCounters;
  VLBigTimecode mBigWindow;
  std::vector<KVObserverToken> mTokens;
  const host::WeakSelf<VLClockDisplay> mSelf{this};
};

}  // namespace velor
