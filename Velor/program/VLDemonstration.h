// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

/// A headless run of ten seconds that reads the LTC that it plays, on "Velor Loopback". It
/// uses nothing outside the process and saves nothing. Reports whether the times read are
/// the times sent: exit status 0, else 1. Main thread; a host must exist.
int VLDemonstrationRun();

}  // namespace velor
