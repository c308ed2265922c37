// SPDX-License-Identifier: MIT
#include "Velor/views/VLPopOutWindowController.h"

#include <QVBoxLayout>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Velor/views/VLWindowPlaces.h"

namespace velor {

VLPopOutWindowController::VLPopOutWindowController(
    std::unique_ptr<VLPanelController> viewController, std::optional<Attributes> attributes,
    std::shared_ptr<VLWindowFrames> frames)
    : mViewController(std::move(viewController)),
      mAttributes(attributes),
      mFrames(std::move(frames)) {
  KV_REQUIRE_PARAMETER(mViewController != nullptr, "viewController");
}

VLPopOutWindowController::~VLPopOutWindowController() {
  if (mWindow == nullptr) {
    return;
  }
  mWindow->hide();  // saves its frame
  if (QWidget* view = mViewController->view()) {
    view->setParent(nullptr);  // the panel's, and not the window's to delete
  }
}

QWidget& VLPopOutWindowController::window() {
  if (mWindow == nullptr) {
    mWindow = std::make_unique<QWidget>();
    windowDidLoad();
  }
  return *mWindow;
}

void VLPopOutWindowController::windowDidLoad() {
  int styleMask = kResizableBit;
  if (QWidget* view = mViewController->view()) {
    mWindow->resize(view->size());
    auto* layout = new QVBoxLayout(mWindow.get());
    layout->setContentsMargins({});
    layout->addWidget(view);
    mWindow->setMaximumSize(mViewController->maxSize());
    mWindow->setMinimumSize(mViewController->minSize());
    if (!mViewController->resizeable()) {
      styleMask &= ~kResizableBit;
    }
  }
  if (mAttributes) {
    styleMask |= mAttributes->styleMask;
  }
  setStyleMask(styleMask);
  mWindow->setWindowTitle(mViewController->viewControllerTitle());
  mAttributes.reset();
  if (mFrames != nullptr && !mViewController->frameSaveName().isEmpty()) {
    VLWindowPlaces::keep(*mWindow, mViewController->frameSaveName(), mFrames);
  }
}

void VLPopOutWindowController::setStyleMask(int styleMask) {
  if ((styleMask & kResizableBit) == 0) {
    mWindow->setFixedSize(mWindow->size());
  }
}

void VLPopOutWindowController::showWindow() {
  window().show();
  window().raise();
  window().activateWindow();
}

void VLPopOutWindowController::close() {
  if (mWindow != nullptr) {
    mWindow->close();
  }
}

}  // namespace velor
