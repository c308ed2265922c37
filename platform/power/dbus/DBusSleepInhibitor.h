// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/power/SleepInhibitor.h"

namespace velor::power {

/// Asks the screen saver on the session bus, and the login service on the system bus. A bus or
/// a service that is missing leaves a debug line, and is asked again every kRetryInterval; so is
/// one that has ended and come back.
///
/// Each bus has a queue of its own, "velor.screensaver" and "velor.sleep": one that does not
/// answer holds nobody else, and the end of the object for at most a few seconds.
class DBusSleepInhibitor final : public SleepInhibitor {
 public:
  /// ns.
  static constexpr std::uint64_t kRetryInterval = 10'000'000'000;

  /// As in DBUS_SESSION_BUS_ADDRESS. Empty: there is no such bus.
  struct Addresses {
    std::string session;
    std::string system;
    /// The main thread's, since it reads the environment.
    static Addresses ofEnvironment();
  };

  explicit DBusSleepInhibitor(const Addresses& addresses = Addresses::ofEnvironment());
  /// Releases.
  ~DBusSleepInhibitor() override;

  void inhibit(const std::string& reason) override;
  void release() override;

 private:
  class Bus;

  const std::unique_ptr<Bus> mScreenSaver;
  const std::unique_ptr<Bus> mSleep;
};

}  // namespace velor::power
