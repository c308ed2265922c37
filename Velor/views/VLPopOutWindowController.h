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

  /// Raises a KVException without a controller. Without `frames` none is saved.
  explicit VLPopOutWindowController(std::unique_ptr<VLPanelController> viewController,
                                    std::optional<Attributes> attributes = {},
                                    std::shared_ptr<VLWindowFrames> frames = nullptr);
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

  const std::unique_ptr<VLPanelController> mViewController;
  std::optional<Attributes> mAttributes;
  const std::shared_ptr<VLWindowFrames> mFrames;
  std::unique_ptr<QWidget> mWindow;  // made when it is first needed
};

}  // namespace velor
