// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

/// Has the handler called, once, on SIGINT, SIGTERM and SIGHUP, the last unless who started
/// the program ignores it, so that it outlives the terminal. One that comes more than a
/// second later ends the process at once; until then it is the same request, which some
/// programs send to the process and to its group. The handler may do what signal handlers may.
void VLStopSignalsInstall(void (*handler)(int number));

}  // namespace velor
