// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "platform/host/Host.h"
#include "platform/host/RealtimeClass.h"

namespace velor::host {

/// The host that users run on: CLOCK_MONOTONIC, POSIX threads and semaphores.
class SystemHost final : public Host {
 public:
  explicit SystemHost(const RealtimeAttempts& attempts = kSystemRealtimeAttempts);
  ~SystemHost() override;

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
  const RealtimeAttempts mAttempts;
  std::atomic<bool> mWarned{false};
};

}  // namespace velor::host
