// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "Kv-Appkit/KVTransitions.h"
#include "Velor/clock/VLClockStatus.h"

namespace velor {

/// What can change the status of the clock.
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

// What goes with a transition, as flags.
inline constexpr std::uint32_t kTimeRuns = 1U << 0;     ///< marks the time as running
inline constexpr std::uint32_t kTimeStands = 1U << 1;   ///< marks it as standing
inline constexpr std::uint32_t kTellsHere = 1U << 2;    ///< observers of "status", on the queue
inline constexpr std::uint32_t kTellsOnMain = 1U << 3;  ///< those observers, on the main queue
// Reports to the delegate on the main queue, behind the observers. A transition
// without one leaves the report to who asked for it.
inline constexpr std::uint32_t kReportsStart = 1U << 4;
inline constexpr std::uint32_t kReportsStop = 1U << 5;
inline constexpr std::uint32_t kReportsWrongFormat = 1U << 6;

inline constexpr std::uint32_t kOnMainQueue =
    kTellsOnMain | kReportsStart | kReportsStop | kReportsWrongFormat;

struct VLClockTransition {
  VLClockStatus from;
  VLClockEvent event;
  VLClockStatus to;
  std::uint32_t actions;
};

/// The clock's life. A pair that is not here changes nothing.
inline constexpr std::array<VLClockTransition, 14> kVLClockTransitions{{
    {VLClockStopped, VLClockEvent::runRequested, VLClockRolling, kTimeRuns},
    {VLClockRolling, VLClockEvent::stopRequested, VLClockStopped, kTimeStands},
    {VLClockRolling, VLClockEvent::stopTimeReached, VLClockStopped,
     kTimeStands | kTellsOnMain | kReportsStop},
    // The last tick of a run that was stopped on the very frame of the stop time.
    {VLClockStopped, VLClockEvent::stopTimeReached, VLClockStopped,
     kTimeStands | kTellsOnMain | kReportsStop},
    {VLClockStopped, VLClockEvent::armRequested, VLClockArmed, 0},
    {VLClockArmed, VLClockEvent::disarmRequested, VLClockStopped, 0},
    {VLClockArmedWrongFormat, VLClockEvent::disarmRequested, VLClockStopped, 0},
    {VLClockChasing, VLClockEvent::disarmRequested, VLClockStopped,
     kTimeStands | kTellsHere | kReportsStop},
    {VLClockArmed, VLClockEvent::mtcOfFormat, VLClockChasing, kTellsOnMain | kReportsStart},
    {VLClockArmedWrongFormat, VLClockEvent::mtcOfFormat, VLClockChasing,
     kTellsOnMain | kReportsStart},
    {VLClockArmed, VLClockEvent::mtcOfOtherFormat, VLClockArmedWrongFormat,
     kTellsOnMain | kReportsWrongFormat},
    {VLClockChasing, VLClockEvent::mtcOfOtherFormat, VLClockArmedWrongFormat,
     kTellsOnMain | kReportsWrongFormat},
    {VLClockChasing, VLClockEvent::mtcEnded, VLClockArmed, kTimeStands},
    {VLClockArmedWrongFormat, VLClockEvent::formatSet, VLClockArmed, 0},
}};

static_assert(KVNoPairRepeats(kVLClockTransitions), "one status and one event lead to one place");

}  // namespace velor
