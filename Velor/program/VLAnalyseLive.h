// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLAnalyse.h"

namespace velor {

/// Analyses `live` or `mtc` until SIGINT or SIGTERM, and prints the report on standard
/// output. Gives the exit status: 0, 1 when the device fails or no timecode came, 2 when the
/// device has no such channel or there is no such port. The host must exist. Main thread.
int VLAnalyseLiveRun(const VLAnalyseOptions& options);

}  // namespace velor
