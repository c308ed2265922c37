// SPDX-License-Identifier: MIT
#include "tests/support/FairRun.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace velor::test {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kInterval{1};
constexpr int kRuns = 5;

// The longest that any processor kept its thread waiting.
class Watch {
 public:
  Watch() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &allowed)) {
        mThreads.emplace_back([this, cpu] { watch(cpu); });
      }
    }
  }
  ~Watch() {
    mEnding = true;
    for (std::thread& thread : mThreads) {
      thread.join();
    }
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  Clock::duration worst() const { return Clock::duration(mWorst.load()); }

 private:
  void watch(int cpu) {
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(cpu, &own);
    pthread_setaffinity_np(pthread_self(), sizeof own, &own);
    sched_param parameters{};
    parameters.sched_priority = 95;
    // Where that is not allowed the thread waits like any other, and sees what the
    // threads of the test see.
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
    while (!mEnding) {
      const auto due = Clock::now() + kInterval;
      std::this_thread::sleep_until(due);
      const auto late = (Clock::now() - due).count();
      auto worst = mWorst.load();
      while (late > worst && !mWorst.compare_exchange_weak(worst, late)) {
      }
    }
  }

  std::atomic<bool> mEnding{false};
  std::atomic<Clock::rep> mWorst{0};
  std::vector<std::thread> mThreads;
};

}  // namespace

void inFairRun(const std::function<void()>& body, std::chrono::microseconds stall) {
  for (int run = 1;; ++run) {
    testing::TestPartResultArray results;
    Clock::duration worst;
    {
      const Watch watch;
      const testing::ScopedFakeTestPartResultReporter reporter(
          testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
      body();
      worst = watch.worst();
    }
    bool failed = false;
    for (int i = 0; i < results.size(); ++i) {
      failed = failed || results.GetTestPartResult(i).failed();
    }
    const bool again = failed && worst > stall && run < kRuns;
    for (int i = 0; i < results.size(); ++i) {
      const testing::TestPartResult& result = results.GetTestPartResult(i);
      if (again) {
        std::printf("%s", result.message());
      } else if (result.failed()) {
        ADD_FAILURE_AT(result.file_name(), result.line_number()) << result.message();
      }
    }
    if (!again) {
      return;
    }
    std::printf("\nthe machine stood still for %.1f ms; run %d is not counted\n",
                std::chrono::duration<double, std::milli>(worst).count(), run);
  }
}

}  // namespace velor::test
