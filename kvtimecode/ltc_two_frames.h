// SPDX-License-Identifier: MIT
#pragma once

#include "kvtimecode/SMPTETime.h"

// MTC names a time two frames before a receiver has it, so its senders and the LTC
// generator add two frames. In drop-frame formats ltc_add_frames counts the numbers that
// are left out: two frames after 00:00:59;29 it gives 00:01:00;02, which is one frame.
// Where blocks begin on such a frame, each dropped minute repeats one number and skips
// another. The exact mode goes two frame numbers on instead.
namespace velor {

/// Off at first. One setting for the process, as clock, readers and generators must
/// agree. Any thread. Realtime-safe: yes.
void ltc_set_exact_drop(bool isExact) noexcept;
bool ltc_exact_drop() noexcept;

/// Adds two frames, in the mode that is set. Any thread. Realtime-safe: yes.
void ltc_add_two_frames(SMPTETime& t) noexcept;

}  // namespace velor
