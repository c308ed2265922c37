// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLOptions.h"
#include "Velor/program/VLSession.h"

namespace velor {

/// Runs without a window, with a status line where there is a terminal. Returns the exit
/// status of VLSessionRun. Main thread; a host must exist.
int VLHeadlessRun(const VLOptions& options, const VLWorld& world = {});

}  // namespace velor
