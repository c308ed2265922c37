// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Velor/program/VLOptions.h"

namespace velor {

/// Runs without a window until SIGINT, SIGTERM or SIGHUP. Returns the exit status: 0 done,
/// 1 failed, 2 used wrongly. Main thread; a host must be in force.
int VLHeadlessRun(const VLOptions& options);

/// The names of its steps, in the order in which it takes them.
std::vector<std::string> VLHeadlessSteps();

}  // namespace velor
