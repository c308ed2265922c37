// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Velor/program/VLOptions.h"

namespace velor {

class VLAppDelegate;
class VLLTCReaderDevice;

/// The surroundings of a run.
struct VLHeadlessWorld {
  /// No server, no other machine and no folder: the run reaches nothing outside the process.
  bool isApart = false;
  /// Called when all is set up, with the reader that the options name.
  std::function<void(VLAppDelegate&, VLLTCReaderDevice&)> running;
};

/// Runs without a window until SIGINT, SIGTERM or SIGHUP. Returns the exit status: 0 done,
/// 1 failed, 2 used wrongly. Main thread; a host must be in force.
int VLHeadlessRun(const VLOptions& options, const VLHeadlessWorld& world = {});

/// The names of its steps, in the order in which it takes them.
std::vector<std::string> VLHeadlessSteps();

}  // namespace velor
