// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Velor/program/VLFrontEnd.h"
#include "Velor/program/VLOptions.h"

namespace velor {

class VLAppDelegate;
class VLLTCReaderDevice;
class VLWantedDevices;

/// The surroundings of a run.
struct VLWorld {
  /// No server, no other machine and no folder: the run reaches nothing outside the process.
  bool isApart = false;
  /// Called when all is set up, with the reader that the options name.
  std::function<void(VLAppDelegate&, VLLTCReaderDevice&)> running;
};

/// The devices outlive what is made.
using VLMakeFrontEnd = std::function<std::unique_ptr<VLFrontEnd>(VLWantedDevices& devices)>;

/// Sets the application up as the options say, and runs it until the front end or a signal
/// (SIGINT, SIGTERM, SIGHUP) ends it. Returns the exit status: 0 done, 1 failed, 2 used
/// wrongly. Main thread; a host must exist.
int VLSessionRun(const VLOptions& options, const VLWorld& world, const VLMakeFrontEnd& make);

/// The names of its steps, in the order in which it takes them.
std::vector<std::string> VLSessionSteps();

}  // namespace velor
