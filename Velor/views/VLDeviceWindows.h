// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/views/VLDestinationsViewController.h"
#include "Velor/views/VLPanelController.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLPopOutWindowController.h"
#include "Velor/views/VLWindowFrames.h"
#include "platform/host/WeakSelf.h"

namespace velor {

/// The windows of the devices, one for each that was opened, and that of their list. A window
/// that is closed stays where it is until it is shown again; one whose device is removed, by
/// whatever way, goes. Queue: main.
class VLDeviceWindows {
 public:
  VLDeviceWindows(VLPerform perform, std::shared_ptr<VLWindowFrames> frames)
      : mPerform(std::move(perform)), mFrames(std::move(frames)) {}
  VLDeviceWindows(const VLDeviceWindows&) = delete;
  VLDeviceWindows& operator=(const VLDeviceWindows&) = delete;

  /// From then on it follows the device manager.
  void follow();

  /// New devices, whose windows are shown. They raise what the manager raises.
  void addLTCReader();
  void addLTCGenerator();
  /// Makes the window anew.
  void showDestinationsWindow();
  /// Null for a device that has no window.
  VLPopOutWindowController* windowControllerForDevice(const std::shared_ptr<VLDevice>& device);
  void closeAndRemovewindowControllerForDevice(const std::shared_ptr<VLDevice>& device);
  /// To the front.
  void showWindowForDevice(const std::shared_ptr<VLDevice>& device);

  VLDestinationsViewController* destinationsWindow() { return mDestinationsWindow.get(); }

 private:
  std::unique_ptr<VLPanelController> makePanel(const std::shared_ptr<VLDevice>& device) const;
  void closeRemoved();

  const VLPerform mPerform;
  const std::shared_ptr<VLWindowFrames> mFrames;
  std::map<std::weak_ptr<VLDevice>, std::unique_ptr<VLPopOutWindowController>, std::owner_less<>>
      mWindowControllers;
  std::unique_ptr<VLDestinationsViewController> mDestinationsWindow;
  KVObserverToken mToken;
  const host::WeakSelf<VLDeviceWindows> mSelf{this};
};

}  // namespace velor
