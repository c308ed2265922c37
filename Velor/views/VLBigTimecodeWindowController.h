// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

#include "Velor/app/VLBigTimecodeOutlet.h"
#include "Velor/views/VLBigTimecodeView.h"

namespace velor {

/// The window for reading from a distance. Closing hides it. Queue: main.
class VLBigTimecodeWindowController final : public VLBigTimecodeOutlet {
 public:
  VLBigTimecodeWindowController();

  void setMainTime(const SMPTETime& time) override { bigTimecodeView->setMainTime(time); }
  void setClockStatus(VLClockStatus status) override { bigTimecodeView->setClockStatus(status); }
  void showWindow() override;

  QWidget& window() { return mWindow; }

 private:
  QWidget mWindow;
  VLBigTimecodeView* const bigTimecodeView;  // a child of the window
};

}  // namespace velor
