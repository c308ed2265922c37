// SPDX-License-Identifier: MIT
#pragma once

#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "tests/support/Servers.h"

namespace velor::test {

/// Lets the main loop run until the condition holds, at most `seconds`; the last answer.
template <class Condition>
bool until(host::SimulatedHost& host, double seconds, const Condition& condition) {
  constexpr double kStep = 1e-3;
  for (double elapsed = 0; elapsed < seconds && !condition(); elapsed += kStep) {
    host.advance(static_cast<std::uint64_t>(kStep * 1e9));
  }
  return condition();
}
template <class Condition>
bool until(host::SystemHost& host, double seconds, const Condition& condition) {
  return waitFor(seconds, [&] {
    host.mainQueue().drainPending();
    return condition();
  });
}

}  // namespace velor::test
