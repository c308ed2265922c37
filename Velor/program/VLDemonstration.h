// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

/// Shows what Velor does, in ten seconds and without anything outside the process: its
/// clock sends MTC, a generator plays that as LTC on "Velor Loopback", a reader hears it
/// and sends MTC again. Prints the time sent and the time read side by side, in place on
/// a terminal and else once a second, and at last what was seen. Gives the exit status:
/// 0 when what was read is what was sent, else 1. Main thread; a host must be in force.
int VLDemonstrationRun();

}  // namespace velor
