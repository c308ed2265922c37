// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLApplication.h"
#include "Velor/program/VLOptions.h"

namespace velor {

/// Runs with windows until the user quits. Returns the exit status of VLSessionRun. Main
/// thread; a host must exist.
int VLWindowedRun(VLApplication& application, const VLOptions& options);

}  // namespace velor
