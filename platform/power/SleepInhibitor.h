// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor::power {

/// Keeps the screen saver and the sleep of the system away. Implementations:
/// DBusSleepInhibitor, SimulatedSleepInhibitor.
class SleepInhibitor {
 public:
  virtual ~SleepInhibitor() = default;
  SleepInhibitor(const SleepInhibitor&) = delete;
  SleepInhibitor& operator=(const SleepInhibitor&) = delete;

  /// From now on, as far as the system can. `reason`: for the user, whom the system may tell
  /// why it stays awake. Any thread; waits for nothing.
  virtual void inhibit(const std::string& reason) = 0;
  /// Any thread; waits for nothing.
  virtual void release() = 0;

 protected:
  SleepInhibitor() = default;
};

/// The current one; the application chooses it once, a test for each case. Without a choice:
/// one that does nothing.
SleepInhibitor& sleepInhibitor() noexcept;
/// Null takes the choice back.
void setSleepInhibitor(SleepInhibitor* inhibitor) noexcept;

}  // namespace velor::power
