// SPDX-License-Identifier: MIT
#include "sim/SimulatedHost.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace velor::host {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

TEST(SimulatedHost, TimeJumpsFromDeadlineToDeadlineAndStopsAtTheGivenTime) {
  SimulatedHost host;
  const std::uint64_t start = host.AudioGetCurrentHostTime();
  std::vector<std::uint64_t> wakes;
  bool mainRan = false;
  const auto thread = host.startThread("sleeper", [&] {
    for (std::uint64_t i = 1; i <= 3; ++i) {
      host.mach_wait_until(start + i * 1000 * kMs);
      wakes.push_back(host.AudioGetCurrentHostTime() - start);
    }
    host.mainQueue().async([&mainRan] { mainRan = true; });
  });
  host.advance(2000 * kMs);  // what is due at the end has run
  EXPECT_EQ(wakes, (std::vector<std::uint64_t>{1000 * kMs, 2000 * kMs}));
  EXPECT_EQ(host.AudioGetCurrentHostTime(), start + 2000 * kMs);
  thread->join();  // waiting carries time as well
  EXPECT_EQ(host.AudioGetCurrentHostTime(), start + 3000 * kMs);
  EXPECT_FALSE(mainRan) << "outside the main loop";
  host.settle();
  EXPECT_TRUE(mainRan);
}

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

TEST(SimulatedHost, AnExceptionUnderWayStaysWithItsThread) {
  SimulatedHost host;
  Queue queue("thrower");
  try {
    throw std::runtime_error("outer");
  } catch (const std::runtime_error&) {
    EXPECT_THROW(queue.sync([&host] {
      try {
        throw std::logic_error("inner");
      } catch (...) {
        host.mach_wait_until(host.AudioGetCurrentHostTime() + kMs);
        throw;
      }
    }),
                 std::logic_error);
    EXPECT_THROW(throw, std::runtime_error);
  }
}

TEST(SimulatedHostDeathTest, ASyncOfAQueueFromItselfEndsTheRunWithItsName) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        SimulatedHost host;
        Queue queue("selfish");
        queue.sync([&queue] { queue.sync([] {}); });
      },
      "sync on selfish from itself");
}

}  // namespace
}  // namespace velor::host
