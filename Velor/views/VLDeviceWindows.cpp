// SPDX-License-Identifier: MIT
#include "Velor/views/VLDeviceWindows.h"

#include <algorithm>

#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/views/VLGeneratorViewController.h"
#include "Velor/views/VLLTCReaderViewController.h"
#include "Velor/views/VLWindowPlaces.h"
#include "platform/host/Host.h"

namespace velor {

void VLDeviceWindows::follow() {
  mToken = VLDeviceManager::sharedManager().addObserver(
      "devices", [job = mSelf.job([](VLDeviceWindows& self) { self.closeRemoved(); })](
                     const auto&) { host::current().mainQueue().async(job); });
}

void VLDeviceWindows::addLTCReader() {
  showWindowForDevice(VLDeviceManager::sharedManager().createrReader());
}

void VLDeviceWindows::addLTCGenerator() {
  showWindowForDevice(VLDeviceManager::sharedManager().createGenerator());
}

void VLDeviceWindows::showDestinationsWindow() {
  if (mDestinationsWindow != nullptr) {
    mDestinationsWindow->hide();  // saves its place
  }
  mDestinationsWindow = std::make_unique<VLDestinationsViewController>(
      mPerform, [this](const auto& device) { showWindowForDevice(device); },
      [this](const auto& device) { closeAndRemovewindowControllerForDevice(device); });
  VLWindowPlaces::keep(*mDestinationsWindow, "devicesWindow", mFrames);
  mDestinationsWindow->show();
  mDestinationsWindow->raise();
  mDestinationsWindow->activateWindow();
}

std::unique_ptr<VLPanelController> VLDeviceWindows::makePanel(
    const std::shared_ptr<VLDevice>& device) const {
  if (auto generator = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(device)) {
    return std::make_unique<VLGeneratorViewController>(generator, mPerform);
  }
  if (auto reader = std::dynamic_pointer_cast<VLLTCReaderDevice>(device)) {
    return std::make_unique<VLLTCReaderViewController>(reader, mPerform);
  }
  return nullptr;
}

VLPopOutWindowController* VLDeviceWindows::windowControllerForDevice(
    const std::shared_ptr<VLDevice>& device) {
  const auto known = mWindowControllers.find(device);
  if (known != mWindowControllers.end()) {
    return known->second.get();
  }
  auto panel = makePanel(device);
  if (panel == nullptr) {
    return nullptr;
  }
  auto& made = mWindowControllers[device];
  made = std::make_unique<VLPopOutWindowController>(std::move(panel), std::nullopt, mFrames);
  made->showWindow();
  return made.get();
}

void VLDeviceWindows::closeAndRemovewindowControllerForDevice(
    const std::shared_ptr<VLDevice>& device) {
  mWindowControllers.erase(device);
}

void VLDeviceWindows::showWindowForDevice(const std::shared_ptr<VLDevice>& device) {
  if (auto* const controller = windowControllerForDevice(device)) {
    controller->showWindow();
  }
}

void VLDeviceWindows::closeRemoved() {
  const auto devices = VLDeviceManager::sharedManager().devices();
  std::erase_if(mWindowControllers, [&](const auto& each) {
    return std::ranges::find(devices, each.first.lock()) == devices.end();
  });
}

}  // namespace velor
