// SPDX-License-Identifier: MIT
#pragma once

#include "platform/host/Host.h"

namespace velor {

/// The ticks of host time in nanoseconds, as the host gives them at the first call. A
/// host that gives none stops the program.
const host::MachTimebaseInfo& KVTimebase();

}  // namespace velor
