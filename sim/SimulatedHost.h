// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "platform/host/Host.h"

namespace velor::host {

/// Time for tests. Threads are fibers of the thread that made the host: one runs
/// at a time, until it waits, and when all wait, time jumps to the next deadline.
/// Code costs no time. Each run with the same seed is the same run.
///
/// The thread that makes it is the main thread; the main queue is drained while
/// that thread is inside `advance`, and only then, as in a real event loop.
/// A state in which nothing can ever run again ends the program with the names
/// of the threads that wait.
class SimulatedHost final : public Host {
 public:
  /// `seed` 0 runs what can run in the order in which it became able to; any
  /// other seed draws from it.
  explicit SimulatedHost(std::uint64_t seed = 0);
  /// All threads must have ended.
  ~SimulatedHost() override;

  /// Lets `duration` nanoseconds go by, everything due at their end included.
  void advance(std::uint64_t duration);

  /// Lets everything run that can without time going by.
  void settle() { advance(0); }

  /// Sets the wall clock; it goes on with simulated time. UTC, 00:00:00 on the
  /// first day of 1970 when the host is made.
  void setWallClock(timeval now);

  std::uint64_t AudioGetCurrentHostTime() const noexcept override;
  timeval gettimeofday() const noexcept override;
  int mach_timebase_info(MachTimebaseInfo& info) const noexcept override;
  void mach_wait_until(std::uint64_t deadline) noexcept override;
  int thread_policy_set(const ThreadTimeConstraintPolicy& policy,
                        ThreadRole role) noexcept override;
  std::unique_ptr<Thread> startThread(std::string name, std::function<void()> body) override;
  std::unique_ptr<Semaphore> makeSemaphore(Pollable pollable = Pollable::no) override;
  Semaphore& threadSemaphore() override;

 private:
  struct Scheduler;
  class SimulatedSemaphore;
  class SimulatedThread;

  const std::unique_ptr<Scheduler> mScheduler;
};

}  // namespace velor::host
