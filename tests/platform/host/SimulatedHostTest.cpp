// SPDX-License-Identifier: MIT
#include "sim/SimulatedHost.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace velor::host {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

std::string interleaving(std::uint64_t seed) {
  SimulatedHost host(seed);
  std::string trace;
  std::vector<std::unique_ptr<Thread>> threads;
  for (char name = 'a'; name < 'g'; ++name) {
    threads.push_back(host.startThread(std::string(1, name), [&host, &trace, name] {
      for (int i = 0; i < 8; ++i) {
        trace += name;
        host.mach_wait_until(host.AudioGetCurrentHostTime() + kMs);
      }
    }));
  }
  host.advance(20 * kMs);
  return trace;
}

TEST(SimulatedHost, RunsTheSameForASeedAndDifferentlyForAnother) {
  EXPECT_EQ(interleaving(0).substr(0, 12), "abcdefabcdef");
  EXPECT_EQ(interleaving(5), interleaving(5));
  EXPECT_NE(interleaving(5), interleaving(6));
}

}  // namespace
}  // namespace velor::host
