// SPDX-License-Identifier: MIT
#pragma once

#include "platform/power/dbus/DBusSleepInhibitor.h"

namespace velor {

/// Makes the services of the desktop, and makes them the current ones until its end. The host
/// must exist.
class VLCurrentDesktop {
 public:
  VLCurrentDesktop() { power::setSleepInhibitor(&mInhibitor); }
  ~VLCurrentDesktop() { power::setSleepInhibitor(nullptr); }
  VLCurrentDesktop(const VLCurrentDesktop&) = delete;
  VLCurrentDesktop& operator=(const VLCurrentDesktop&) = delete;

 private:
  power::DBusSleepInhibitor mInhibitor;
};

}  // namespace velor
