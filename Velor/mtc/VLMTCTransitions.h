// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "Kv-Appkit/KVTransitions.h"

namespace velor {

/// What a sender of MTC from a reader is doing.
enum class VLMTCMode : std::uint8_t { idle, reading, freewheeling };

/// What can change that.
enum class VLMTCEvent : std::uint8_t {
  timeRead,
  typeChanged,      ///< the time read is of another format than the one sent before
  silence,          ///< no time was read for four frames
  timeRanOut,       ///< the freewheel has lasted its time
  noFreewheelTime,  ///< it had none
  stopRequested,
};

// What goes with a transition, as flags; it is done in this order.
/// Takes the timer back, and with it the end of the freewheel that is under way.
inline constexpr std::uint32_t kMTCEndsFreewheel = 1U << 0;
// Who may send from now on, and nobody else.
inline constexpr std::uint32_t kMTCNobodySends = 1U << 1;
inline constexpr std::uint32_t kMTCReaderSends = 1U << 2;
inline constexpr std::uint32_t kMTCTimerSends = 1U << 3;
/// Puts the timer off and sends the time, if the reader may.
inline constexpr std::uint32_t kMTCTakesTime = 1U << 4;
inline constexpr std::uint32_t kMTCStartsWatchdog = 1U << 5;  ///< and the timer
inline constexpr std::uint32_t kMTCFeedsWatchdog = 1U << 6;
inline constexpr std::uint32_t kMTCDropsWatchdog = 1U << 7;
inline constexpr std::uint32_t kMTCSchedulesEnd = 1U << 8;
// Reports to the owner, on the main queue.
inline constexpr std::uint32_t kMTCTellsResume = 1U << 9;
inline constexpr std::uint32_t kMTCTellsStart = 1U << 10;
inline constexpr std::uint32_t kMTCTellsType = 1U << 11;
inline constexpr std::uint32_t kMTCTellsFreewheel = 1U << 12;  ///< or its stop, as it is by then
inline constexpr std::uint32_t kMTCTellsStop = 1U << 13;

struct VLMTCTransition {
  VLMTCMode from;
  VLMTCEvent event;
  VLMTCMode to;
  std::uint32_t actions;
};

/// A pair that is not here changes nothing.
inline constexpr std::array<VLMTCTransition, 8> kVLMTCTransitions{{
    {VLMTCMode::idle, VLMTCEvent::timeRead, VLMTCMode::reading,
     kMTCReaderSends | kMTCTakesTime | kMTCStartsWatchdog | kMTCTellsStart},
    {VLMTCMode::reading, VLMTCEvent::timeRead, VLMTCMode::reading,
     kMTCReaderSends | kMTCTakesTime | kMTCFeedsWatchdog},
    // The first time after a freewheel is not sent.
    {VLMTCMode::freewheeling, VLMTCEvent::timeRead, VLMTCMode::reading,
     kMTCEndsFreewheel | kMTCNobodySends | kMTCTakesTime | kMTCStartsWatchdog | kMTCTellsResume |
         kMTCTellsStart},
    {VLMTCMode::reading, VLMTCEvent::typeChanged, VLMTCMode::reading, kMTCTellsType},
    {VLMTCMode::reading, VLMTCEvent::silence, VLMTCMode::freewheeling,
     kMTCTimerSends | kMTCDropsWatchdog | kMTCSchedulesEnd | kMTCTellsFreewheel},
    {VLMTCMode::freewheeling, VLMTCEvent::timeRanOut, VLMTCMode::idle,
     kMTCEndsFreewheel | kMTCNobodySends | kMTCTellsStop},
    {VLMTCMode::freewheeling, VLMTCEvent::noFreewheelTime, VLMTCMode::idle,
     kMTCEndsFreewheel | kMTCNobodySends | kMTCTellsStop},
    {VLMTCMode::freewheeling, VLMTCEvent::stopRequested, VLMTCMode::idle,
     kMTCEndsFreewheel | kMTCNobodySends | kMTCTellsStop},
}};
static_assert(KVNoPairRepeats(kVLMTCTransitions), "one mode and one event lead to one place");

}  // namespace velor
