// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "platform/host/Error.h"

namespace velor::power {

/// What a service of the desktop or of the system grants; it ends with the object. One thread
/// at a time; each call waits at most for a few times host::BusConnection::kMostWait.
class Inhibition {
 public:
  virtual ~Inhibition() = default;
  Inhibition(const Inhibition&) = delete;
  Inhibition& operator=(const Inhibition&) = delete;

  /// False once the service that granted it has ended or was started again.
  virtual bool isHeld() = 0;

  using Granted = Expected<std::unique_ptr<Inhibition>>;

  /// By org.freedesktop.ScreenSaver on the session bus at `address`.
  static Granted ofScreenSaver(const std::string& address, const std::string& reason);
  /// By org.freedesktop.login1 on the system bus at `address`.
  static Granted ofSleep(const std::string& address, const std::string& reason);

 protected:
  Inhibition() = default;
};

}  // namespace velor::power
