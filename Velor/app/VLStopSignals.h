// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

/// Has the handler called on SIGINT, SIGTERM and SIGHUP, the last unless who started the
/// program ignores it, so that it outlives the terminal. Once each: a second one of the
/// same kind ends the process at once. The handler may do what signal handlers may.
void VLStopSignalsInstall(void (*handler)(int number));

}  // namespace velor
