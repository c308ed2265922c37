// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

#include "Kv-Appkit/KVTransitions.h"

namespace velor {

enum class VLMediaChaseState : std::uint8_t {
  outOfStep,
  inStep,  ///< the player has been started from MTC and is taken to be in step
};

/// An event that can change the state of a chase.
enum class VLMediaChaseEvent : std::uint8_t {
  dueInClip,    ///< a report inside the clip, on line
  offsetFound,  ///< the player is as far from the timecode as kVLMediaLargestOffset, or farther
  leftClip,     ///< a report outside the clip, on line, while the player runs
  mtcEnded,
  startTimeTyped,
};

struct VLMediaChaseTransition {
  VLMediaChaseState from;
  VLMediaChaseEvent event;
  VLMediaChaseState to;
};

/// A pair that is not here changes nothing. A report that finds the player off leaves it as it
/// is; the next one starts it again.
inline constexpr std::array<VLMediaChaseTransition, 8> kVLMediaChaseTransitions{{
    {VLMediaChaseState::outOfStep, VLMediaChaseEvent::dueInClip, VLMediaChaseState::inStep},
    {VLMediaChaseState::inStep, VLMediaChaseEvent::offsetFound, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::outOfStep, VLMediaChaseEvent::leftClip, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::inStep, VLMediaChaseEvent::leftClip, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::outOfStep, VLMediaChaseEvent::mtcEnded, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::inStep, VLMediaChaseEvent::mtcEnded, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::outOfStep, VLMediaChaseEvent::startTimeTyped, VLMediaChaseState::outOfStep},
    {VLMediaChaseState::inStep, VLMediaChaseEvent::startTimeTyped, VLMediaChaseState::outOfStep},
}};

static_assert(KVNoPairRepeats(kVLMediaChaseTransitions),
              "one state and one event lead to one place");

}  // namespace velor
