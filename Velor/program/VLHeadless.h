// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLOptions.h"

namespace velor {

/// Runs what the options ask for without a window, until SIGINT, SIGTERM or
/// SIGHUP. Gives the exit status: 0 done, 1 failed, 2 a port or a host that does not exist.
/// Main thread; a host must be in force.
int VLHeadlessRun(const VLOptions& options);

}  // namespace velor
