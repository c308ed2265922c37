// SPDX-License-Identifier: MIT
// What the worst pattern costs that a datagram can bring, matched with the longest path
// of the program: rows of all short units of wildcards, each as long as the datagram,
// from where one way is open and from where many are. The slowest are measured again.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "oscpkt/src/OscPattern.h"

namespace velor::oscpkt {
namespace {

constexpr std::string_view kPath = "/velor/transport/play";
// What a datagram leaves beside the terminator and the least that must follow.
constexpr std::size_t kLongestPattern = 65499;
constexpr std::size_t kLongestUnit = 4;
constexpr std::size_t kSlowest = 40;
constexpr double kGoalMicroseconds = 1000;

struct Candidate {
  std::string begin;
  std::string unit;
  double microseconds;
};

double microsecondsOf(const Candidate& candidate) {
  std::string pattern = candidate.begin;
  while (pattern.size() + candidate.unit.size() <= kLongestPattern) {
    pattern += candidate.unit;
  }
  const auto start = std::chrono::steady_clock::now();
  benchmark::DoNotOptimize(matchOscPattern(pattern, findOscWildcard(pattern), kPath));
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
      .count();
}

std::vector<std::string> units() {
  constexpr std::string_view kCharacters = "*/?r[]{},-";
  std::vector<std::string> all = {""};
  for (std::size_t begin = 0; all.back().size() < kLongestUnit;) {
    for (const std::size_t end = all.size(); begin < end; ++begin) {
      for (const char c : kCharacters) {
        all.push_back(all[begin] + c);
      }
    }
  }
  all.erase(all.begin());
  // Lists of which the alternatives nearly fit, or that lead back to where they began.
  for (const char* const unit : {"{velo,,", "{x,r}", "*{r,}", "*{x,}", "{x,}*", "{x,r,}*", "*{/v,}",
                                 "{,x}*", "//*{x,}", "{r,e,l,o,v,t}"}) {
    all.emplace_back(unit);
  }
  return all;
}

int run() {
  std::vector<Candidate> candidates;
  for (const std::string& unit : units()) {
    for (const char* const begin : {"/*", "//", "//*", "//*{x", "//*[x", "//*{velor", "//*{"}) {
      // A list counts when it ends.
      candidates.push_back({begin, unit, 0});
    }
  }
  for (Candidate& candidate : candidates) {
    candidate.microseconds = microsecondsOf(candidate);
  }
  const auto slower = [](const Candidate& a, const Candidate& b) {
    return a.microseconds > b.microseconds;
  };
  std::sort(candidates.begin(), candidates.end(), slower);
  const std::size_t tried = candidates.size();
  candidates.resize(kSlowest);
  for (Candidate& candidate : candidates) {
    std::vector<double> times(21);
    std::generate(times.begin(), times.end(), [&] { return microsecondsOf(candidate); });
    std::sort(times.begin(), times.end());
    candidate.microseconds = times[times.size() / 2];
  }
  std::sort(candidates.begin(), candidates.end(), slower);
  std::printf("%zu patterns of %zu bytes with %s, the slowest, median of 21:\n", tried,
              kLongestPattern, std::string(kPath).c_str());
  for (std::size_t i = 0; i < 5; ++i) {
    std::printf("  %7.1f us  %s, then %s repeated\n", candidates[i].microseconds,
                candidates[i].begin.c_str(), candidates[i].unit.c_str());
  }
  std::printf("goal: below %.0f us\n", kGoalMicroseconds);
  return candidates[0].microseconds < kGoalMicroseconds ? 0 : 1;
}

}  // namespace
}  // namespace velor::oscpkt

int main() {
  return velor::oscpkt::run();
}
