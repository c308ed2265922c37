// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace velor::test {

/// A thread on each processor, above all others, that wakes every millisecond. When one of
/// them is late, the machine did not run, nor could a program on it.
class StallWatch {
 public:
  using Clock = std::chrono::steady_clock;

  /// Keeps each stall that is longer than `least`.
  explicit StallWatch(Clock::duration least);
  ~StallWatch();
  StallWatch(const StallWatch&) = delete;
  StallWatch& operator=(const StallWatch&) = delete;

  struct Stall {
    Clock::time_point end;
    Clock::duration length;
  };
  std::vector<Stall> stalls() const;

 private:
  void watch(int cpu);

  const Clock::duration mLeast;
  std::atomic<bool> mEnding{false};
  mutable std::mutex mLock;
  std::vector<Stall> mStalls;  // of all processors
  std::vector<std::thread> mThreads;
};

}  // namespace velor::test
