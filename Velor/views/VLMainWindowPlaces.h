// SPDX-License-Identifier: MIT
#pragma once

#include <QMainWindow>

#include "Velor/views/VLWindowFrames.h"

namespace velor {

class VLTimecodeView;

/// What the user has arranged in the main window, from run to run: its frame, the divider, the
/// columns and the scale of the counters. Queue: main.
class VLMainWindowPlaces {
 public:
  /// Both outlive it.
  VLMainWindowPlaces(QMainWindow& window, VLTimecodeView& timecodeView)
      : mWindow(window), mTimecodeView(timecodeView) {}

  /// What is missing or cannot be read stays as it is. A frame outside of the screens of
  /// today is moved into one of them.
  void restore(const VLWindowFrames& frames);
  void save(VLWindowFrames& frames) const;

 private:
  QMainWindow& mWindow;
  VLTimecodeView& mTimecodeView;
};

}  // namespace velor
