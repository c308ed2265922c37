// SPDX-License-Identifier: MIT
#pragma once

#include "sim/SimulatedHost.h"
#include "tests/support/Servers.h"

namespace velor::test {

/// Lets the main loop of the current host run until the condition holds, at most `seconds`;
/// the last answer.
template <class Condition>
bool until(double seconds, const Condition& condition) {
  host::Host& host = host::current();
  if (auto* const simulated = dynamic_cast<host::SimulatedHost*>(&host)) {
    constexpr double kStep = 1e-3;
    for (double elapsed = 0; elapsed < seconds && !condition(); elapsed += kStep) {
      simulated->advance(static_cast<std::uint64_t>(kStep * 1e9));
    }
    return condition();
  }
  return waitFor(seconds, [&] {
    host.mainQueue().drainPending();
    return condition();
  });
}

}  // namespace velor::test
