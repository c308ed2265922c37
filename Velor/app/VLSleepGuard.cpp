// SPDX-License-Identifier: MIT
#include "Velor/app/VLSleepGuard.h"

#include <algorithm>
#include <memory>

#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "platform/host/Host.h"
#include "platform/power/SleepInhibitor.h"

namespace velor {
namespace {

constexpr const char* kReason = "Timecode is running";

}  // namespace

VLSleepGuard::~VLSleepGuard() {
  if (mIsInhibiting) {
    power::sleepInhibitor().release();
  }
}

void VLSleepGuard::follow() {
  const auto later = [](auto job) {
    return [job](const auto&) { host::current().mainQueue().async(job); };
  };
  mTokens.push_back(
      mClock.addObserver("status", later(mSelf.job([](VLSleepGuard& self) { self.update(); }))));
  mTokens.push_back(VLDeviceManager::sharedManager().addObserver(
      "devices", later(mSelf.job([](VLSleepGuard& self) { self.observeGenerators(); }))));
  observeGenerators();
}

void VLSleepGuard::observeGenerators() {
  mTokensOfGenerators.clear();
  for (const auto& device : VLDeviceManager::sharedManager().devices()) {
    if (const auto generator = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(device)) {
      mTokensOfGenerators.push_back(
          generator->addObserver("deviceStatus", [this](const auto&) { update(); }));
    }
  }
  update();
}

bool VLSleepGuard::isNeeded() const {
  const auto devices = VLDeviceManager::sharedManager().devices();
  return mClock.running() || std::ranges::any_of(devices, [](const auto& device) {
           return device->type() == kVLDeviceTypeLTCGenerator &&
                  device->deviceStatus() == kVLDeviceStatusRunning;
         });
}

void VLSleepGuard::update() {
  const bool isNeeded = this->isNeeded();
  if (isNeeded == mIsInhibiting) {
    return;
  }
  mIsInhibiting = isNeeded;
  isNeeded ? power::sleepInhibitor().inhibit(kReason) : power::sleepInhibitor().release();
}

}  // namespace velor
