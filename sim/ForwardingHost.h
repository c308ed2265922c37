// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/host/Host.h"

namespace velor::host {

/// A host that stands before another one, for those who want to see or to change some
/// of what is asked of it. It has a main queue and timers of its own.
class ForwardingHost : public Host {
 public:
  /// `inner` must outlive it.
  explicit ForwardingHost(Host& inner) : mInner(inner) { makeServices(); }
  ~ForwardingHost() override { endServices(); }

  std::uint64_t AudioGetCurrentHostTime() const noexcept override {
    return mInner.AudioGetCurrentHostTime();
  }
  timeval gettimeofday() const noexcept override { return mInner.gettimeofday(); }
  int mach_timebase_info(MachTimebaseInfo& info) const noexcept override {
    return mInner.mach_timebase_info(info);
  }
  void mach_wait_until(std::uint64_t deadline) noexcept override {
    mInner.mach_wait_until(deadline);
  }
  int thread_policy_set(const ThreadTimeConstraintPolicy& policy,
                        ThreadRole role) noexcept override {
    return mInner.thread_policy_set(policy, role);
  }
  std::unique_ptr<Thread> startThread(std::string name, std::function<void()> body) override {
    return mInner.startThread(std::move(name), std::move(body));
  }
  std::unique_ptr<Semaphore> makeSemaphore(Pollable pollable) override {
    return mInner.makeSemaphore(pollable);
  }
  Semaphore& threadSemaphore() override { return mInner.threadSemaphore(); }

 private:
  Host& mInner;
};

}  // namespace velor::host
