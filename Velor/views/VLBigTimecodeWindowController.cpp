// SPDX-License-Identifier: MIT
#include "Velor/views/VLBigTimecodeWindowController.h"

#include <QVBoxLayout>

namespace velor {

VLBigTimecodeWindowController::VLBigTimecodeWindowController()
    : bigTimecodeView(new VLBigTimecodeView(&mWindow)) {
  mWindow.setWindowTitle(VLBigTimecodeView::tr("Big Timecode"));
  mWindow.setObjectName("bigTimecodeWindow");
  bigTimecodeView->setObjectName("bigTimecodeView");
  auto* layout = new QVBoxLayout(&mWindow);
  layout->setContentsMargins({});
  layout->addWidget(bigTimecodeView);
}

void VLBigTimecodeWindowController::showWindow() {
  mWindow.show();
  mWindow.raise();
  mWindow.activateWindow();
}

}  // namespace velor
