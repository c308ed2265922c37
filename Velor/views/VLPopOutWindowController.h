// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <memory>
#include <optional>

#include "Velor/views/VLPanelController.h"
#include "Velor/views/VLWindowFrames.h"

namespace velor {

/// A window that presents one panel. Closing hides it. Queue: main.
class VLPopOutWindowController {
 public:
  static constexpr int kResizableBit = 8;
  struct Attributes {
    int styleMask = 0;  ///< added to that of the window
  };

  /// Raises a KVException without a controller. Without `frames` none is saved; else they
  /// outlive it.
  explicit VLPopOutWindowController(std::unique_ptr<VLPanelController> viewController,
                                    std::optional<Attributes> attributes = {},
                                    VLWindowFrames* frames = nullptr);
  ~VLPopOutWindowController();
  VLPopOutWindowController(const VLPopOutWindowController&) = delete;
  VLPopOutWindowController& operator=(const VLPopOutWindowController&) = delete;

  VLPanelController& viewController() { return *mViewController; }
  QWidget& window();
  void showWindow();
  void close();

 private:
  void windowDidLoad();
  void setStyleMask(int styleMask);
  void saveFrame();

  const std::unique_ptr<VLPanelController> mViewController;
  std::optional<Attributes> mAttributes;
  VLWindowFrames* const mFrames;
  std::unique_ptr<QWidget> mWindow;  // made when it is first needed
};

}  // namespace velor
