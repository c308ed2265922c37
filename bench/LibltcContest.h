// SPDX-License-Identifier: MIT
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace velor {

/// Two sides that do the same work take turns, so that what else the machine does falls
/// on both.
class LibltcContest {
 public:
  static constexpr int kRounds = 41;
  static constexpr double kGoal = 2;

  /// Runs `own` and `libltc`, each of which does `amount` of work in a call.
  template <class Own, class Libltc>
  LibltcContest(double amount, const Own& own, const Libltc& libltc) {
    for (int round = 0; round < kRounds; ++round) {
      mOwnRates.push_back(amount / secondsOf(own));
      mLibltcRates.push_back(amount / secondsOf(libltc));
      mRatios.push_back(mOwnRates.back() / mLibltcRates.back());
    }
  }

  /// What is done a second, in multiples of `scale`; the exit status of the program.
  int print(const char* work, const char* unit, double scale) const {
    const double ratio = median(mRatios);
    std::printf("%s, median of %d rounds\n", work, kRounds);
    std::printf("  velor   %9.0f %s a second\n", median(mOwnRates) / scale, unit);
    std::printf("  libltc  %9.0f %s a second\n", median(mLibltcRates) / scale, unit);
    std::printf("  ratio   %9.2f (goal: at least %.0f), from %.2f to %.2f\n", ratio, kGoal,
                *std::min_element(mRatios.begin(), mRatios.end()),
                *std::max_element(mRatios.begin(), mRatios.end()));
    return ratio >= kGoal ? 0 : 1;
  }

 private:
  template <class Work>
  static double secondsOf(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }

  static double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
  }

  std::vector<double> mOwnRates;
  std::vector<double> mLibltcRates;
  std::vector<double> mRatios;
};

}  // namespace velor
