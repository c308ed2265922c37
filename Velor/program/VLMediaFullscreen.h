// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLApplication.h"
#include "Velor/program/VLOptions.h"

namespace velor {

/// Runs without a main window and shows the video of the clips on the screen that the options
/// name. Returns the exit status of VLSessionRun; 2 without such a screen. Main thread; a host
/// must exist.
int VLMediaFullscreenRun(VLApplication& application, const VLOptions& options);

}  // namespace velor
