// SPDX-License-Identifier: MIT
#include "tests/support/FairRun.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "tests/support/StallWatch.h"

namespace velor::test {
namespace {

constexpr int kRuns = 5;

}  // namespace

void inFairRun(const std::function<void()>& body, std::chrono::microseconds stall) {
  for (int run = 1;; ++run) {
    testing::TestPartResultArray results;
    std::vector<StallWatch::Stall> stalls;
    {
      const StallWatch watch(stall);
      const testing::ScopedFakeTestPartResultReporter reporter(
          testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
      body();
      stalls = watch.stalls();
    }
    bool failed = false;
    for (int i = 0; i < results.size(); ++i) {
      failed = failed || results.GetTestPartResult(i).failed();
    }
    const bool again = failed && !stalls.empty() && run < kRuns;
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
    const auto worst = std::ranges::max(stalls, {}, &StallWatch::Stall::length).length;
    std::printf("\nthe machine stood still for %.1f ms; run %d is not counted\n",
                std::chrono::duration<double, std::milli>(worst).count(), run);
  }
}

}  // namespace velor::test
