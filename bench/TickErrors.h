// SPDX-License-Identifier: MIT
#pragma once

#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/SystemHost.h"
#include "sim/ForwardingHost.h"

namespace velor {

inline constexpr std::uint64_t kSecond = 1'000'000'000;  // ns

inline std::uint64_t now() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<std::uint64_t>(t.tv_sec) * kSecond + static_cast<std::uint64_t>(t.tv_nsec);
}

/// Room for the errors of one run; written by one thread.
class TickErrors {
 public:
  explicit TickErrors(std::size_t count) { mErrors.reserve(count); }
  void add(std::uint64_t error) {
    if (mErrors.size() < mErrors.capacity()) {
      mErrors.push_back(error);
    }
  }
  std::size_t count() const { return mErrors.size(); }
  /// A line each, in us, after what the file holds.
  void appendTo(const std::string& file) const {
    std::ofstream stream(file, std::ios::app);
    for (const std::uint64_t error : mErrors) {
      stream << static_cast<double>(error) / 1e3 << '\n';
    }
  }
  double microseconds(double part) {
    if (mErrors.empty()) {
      return 0;
    }
    std::sort(mErrors.begin(), mErrors.end());
    const double place = part * static_cast<double>(mErrors.size() - 1);
    return static_cast<double>(mErrors[static_cast<std::size_t>(place)]) / 1e3;
  }

 private:
  std::vector<std::uint64_t> mErrors;
};

inline thread_local bool isTimer = false;

struct SystemHostBehind {
  host::SystemHost system;
};

/// The system's host, and how late the timer's thread wakes.
class WatchedHost final : private SystemHostBehind, public host::ForwardingHost {
 public:
  WatchedHost() : ForwardingHost(system) {}

  /// Of one timer; null: no more. Must outlive it.
  void watch(TickErrors* errors) { mErrors.store(errors); }

  void mach_wait_until(std::uint64_t deadline) noexcept override {
    ForwardingHost::mach_wait_until(deadline);
    const std::uint64_t woken = now();
    TickErrors* const errors = isTimer ? mErrors.load() : nullptr;
    if (errors != nullptr && woken >= deadline) {
      errors->add(woken - deadline);
    }
  }
  int thread_policy_set(const host::ThreadTimeConstraintPolicy& policy,
                        host::ThreadRole role) noexcept override {
    isTimer = role == host::ThreadRole::timer;
    return ForwardingHost::thread_policy_set(policy, role);
  }

 private:
  std::atomic<TickErrors*> mErrors{nullptr};
};

}  // namespace velor
