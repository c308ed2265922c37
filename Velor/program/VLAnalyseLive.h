// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/program/VLAnalyse.h"

namespace velor {

/// Analyses `live` or `mtc`, and listens until SIGINT or SIGTERM. The host must be there.
/// Otherwise as VLAnalyseRun, but for 2 where there is no such channel or port.
int VLAnalyseLiveRun(const VLAnalyseOptions& options);

}  // namespace velor
