// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "Kv-Appkit/KVTransitions.h"
#include "Velor/clock/VLClockStatus.h"

namespace velor {

/// An event that can change the status of the clock.
enum class VLClockEvent : std::uint8_t {
  runRequested,
  stopRequested,
  stopTimeReached,
  armRequested,
  disarmRequested,
  mtcOfFormat,       ///< a block of the clock's format came in
  mtcOfOtherFormat,  ///< a block of another format came in
  mtcEnded,
  formatSet,
};

struct VLClockTransition {
  VLClockStatus from;
  VLClockEvent event;
  VLClockStatus to;
};

/// The clock's life. A pair that is not here changes nothing.
inline constexpr std::array<VLClockTransition, 14> kVLClockTransitions{{
    {VLClockStopped, VLClockEvent::runRequested, VLClockRolling},
    {VLClockRolling, VLClockEvent::stopRequested, VLClockStopped},
    {VLClockRolling, VLClockEvent::stopTimeReached, VLClockStopped},
    // The last tick of a run that was stopped on the very frame of the stop time.
    {VLClockStopped, VLClockEvent::stopTimeReached, VLClockStopped},
    {VLClockStopped, VLClockEvent::armRequested, VLClockArmed},
    {VLClockArmed, VLClockEvent::disarmRequested, VLClockStopped},
    {VLClockArmedWrongFormat, VLClockEvent::disarmRequested, VLClockStopped},
    {VLClockChasing, VLClockEvent::disarmRequested, VLClockStopped},
    {VLClockArmed, VLClockEvent::mtcOfFormat, VLClockChasing},
    {VLClockArmedWrongFormat, VLClockEvent::mtcOfFormat, VLClockChasing},
    {VLClockArmed, VLClockEvent::mtcOfOtherFormat, VLClockArmedWrongFormat},
    {VLClockChasing, VLClockEvent::mtcOfOtherFormat, VLClockArmedWrongFormat},
    {VLClockChasing, VLClockEvent::mtcEnded, VLClockArmed},
    {VLClockArmedWrongFormat, VLClockEvent::formatSet, VLClockArmed},
}};

static_assert(KVNoPairRepeats(kVLClockTransitions), "one status and one event lead to one place");

}  // namespace velor
