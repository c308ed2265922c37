// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace velor::host {

/// A counting semaphore: each wait that returns true has taken one signal.
/// Made by a Host, so that it can run on simulated time.
class Semaphore {
 public:
  virtual ~Semaphore() = default;

  /// Adds one. Any thread. Realtime-safe: yes (at most one system call).
  /// Async-signal-safe on the real host.
  virtual void signal() noexcept = 0;

  /// Waits for one and takes it.
  virtual void wait() = 0;

  /// Takes one if it comes by `deadline` (host time, ns); false otherwise.
  virtual bool waitUntil(std::uint64_t deadline) = 0;

  /// A file descriptor that is readable while the count is above 0, for another
  /// event loop; -1 without one (see Host::makeSemaphore).
  virtual int descriptor() const noexcept { return -1; }
};

}  // namespace velor::host
