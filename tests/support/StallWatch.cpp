// SPDX-License-Identifier: MIT
#include "tests/support/StallWatch.h"

#include <pthread.h>
#include <sched.h>

namespace velor::test {
namespace {

constexpr std::chrono::milliseconds kInterval{1};
constexpr int kAboveAllOthers = 95;

}  // namespace

StallWatch::StallWatch(Clock::duration least) : mLeast(least) {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) {
      mThreads.emplace_back([this, cpu] { watch(cpu); });
    }
  }
}

StallWatch::~StallWatch() {
  mEnding = true;
  for (std::thread& thread : mThreads) {
    thread.join();
  }
}

std::vector<StallWatch::Stall> StallWatch::stalls() const {
  const std::lock_guard lock(mLock);
  return mStalls;
}

void StallWatch::watch(int cpu) {
  cpu_set_t own;
  CPU_ZERO(&own);
  CPU_SET(cpu, &own);
  pthread_setaffinity_np(pthread_self(), sizeof own, &own);
  sched_param parameters{};
  parameters.sched_priority = kAboveAllOthers;
  // Where that is not allowed the thread waits like any other, and sees what the
  // threads of the test see.
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
  while (!mEnding) {
    const auto due = Clock::now() + kInterval;
    std::this_thread::sleep_until(due);
    const auto now = Clock::now();
    if (now - due > mLeast) {
      const std::lock_guard lock(mLock);
      mStalls.push_back({now, now - due});
    }
  }
}

}  // namespace velor::test
