// SPDX-License-Identifier: MIT
#include "Kv-Appkit/kv_hptimer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

#include "sim/ForwardingHost.h"
#include "sim/SimulatedHost.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
using Times = std::vector<std::uint64_t>;

class HighResolutionTimer : public testing::Test {
 protected:
  HighResolutionTimer() {
    EXPECT_EQ(kv_hptimer_create(&mTimer, 40 * kMs), 0);
    kv_hptimer_set_block(mTimer, [this](const host::RealtimeContext&) { called(); });
    mCalls.reserve(100);
  }
  ~HighResolutionTimer() override { EXPECT_EQ(kv_hptimer_dispose(mTimer), 0); }

  // In ms since the test began.
  std::uint64_t now() const { return (mHost.AudioGetCurrentHostTime() - mBegin) / kMs; }

  void called() {
    mCalls.push_back(now());
    if (mSlowCall != 0) {
      // The simulated sleep does its bookkeeping here, which a kernel does out of sight.
      const int depth = std::exchange(host::realtimeDepth(), 0);
      mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + std::exchange(mSlowCall, 0));
      host::realtimeDepth() = depth;
    }
  }

  host::SimulatedHost mHost;
  const std::uint64_t mBegin = mHost.AudioGetCurrentHostTime();
  kv_hptimer_s* mTimer = nullptr;
  std::uint64_t mSlowCall = 0;  // ns that the next call takes
  Times mCalls;
};

TEST_F(HighResolutionTimer, DeadlinesCountFromTheStartThroughASlowCallAndANewInterval) {
  kv_hptimer_start(mTimer);
  mHost.advance(39 * kMs);
  EXPECT_TRUE(mCalls.empty());  // not at once
  mSlowCall = 90 * kMs;
  mHost.advance(181 * kMs);
  // Those of 80 and 120 are caught up at 130; the next is back on the grid.
  EXPECT_EQ(mCalls, (Times{40, 130, 130, 160, 200}));
  mCalls.clear();
  EXPECT_EQ(kv_hptimer_set_interval(mTimer, 25 * kMs), 0);  // from the next wake-up on
  mHost.advance(75 * kMs);
  EXPECT_EQ(mCalls, (Times{240, 265, 290}));
  kv_hptimer_stop(mTimer);
}

TEST_F(HighResolutionTimer, AStopLetsTheSleepRunOutAndANewThreadCountsFromItsOwnStart) {
  kv_hptimer_start(mTimer);
  mHost.advance(50 * kMs);
  EXPECT_EQ(kv_hptimer_stop(mTimer), 0);
  EXPECT_EQ(now(), 80U);
  EXPECT_EQ(kv_hptimer_stop(mTimer), -50);
  mHost.advance(15 * kMs);
  EXPECT_EQ(kv_hptimer_start(mTimer), 0);
  mHost.advance(100 * kMs);
  EXPECT_EQ(mCalls, (Times{40, 80, 135, 175}));
  kv_hptimer_stop(mTimer);
}

TEST_F(HighResolutionTimer, AFiniteRunCallsItsCountWhichAStartMeanwhileSetsAgain) {
  kv_hptimer_set_repeat_count(mTimer, 3);
  kv_hptimer_start(mTimer);
  EXPECT_EQ(kv_hptimer_join(mTimer), 0);
  EXPECT_EQ(mCalls, (Times{40, 80, 120}));
  EXPECT_EQ(kv_hptimer_join(mTimer), -50);

  // During a run a start only sets the count again.
  mCalls.clear();
  kv_hptimer_start(mTimer);
  mHost.advance(90 * kMs);  // asleep before the third
  kv_hptimer_set_repeat_count(mTimer, 2);
  EXPECT_EQ(kv_hptimer_start(mTimer), 0);
  EXPECT_EQ(kv_hptimer_join(mTimer), 0);
  EXPECT_EQ(mCalls.size(), 5U);
}

TEST_F(HighResolutionTimer, AStartOrStopThatMeetsAStopWaitsForItsEnd) {
  std::vector<std::pair<std::int32_t, std::uint64_t>> stops;  // result, and when it was back
  const auto stop = [&] {
    const std::int32_t result = kv_hptimer_stop(mTimer);
    stops.push_back({result, now()});
  };
  kv_hptimer_start(mTimer);
  mHost.advance(50 * kMs);
  const auto first = mHost.startThread("first", stop);
  mHost.settle();
  const auto second = mHost.startThread("second", stop);
  mHost.settle();
  EXPECT_EQ(kv_hptimer_start(mTimer), 0);
  mHost.advance(50 * kMs);
  EXPECT_EQ(stops, (std::vector<std::pair<std::int32_t, std::uint64_t>>{{0, 80}, {-50, 80}}));
  EXPECT_EQ(mCalls, (Times{40, 80, 120}));
  kv_hptimer_stop(mTimer);
}

TEST_F(HighResolutionTimer, ANewCallbackReplacesTheOldOneAndIsFreedAfterTheLastCall) {
  kv_hptimer_start(mTimer);
  mHost.advance(50 * kMs);
  const auto others = std::make_shared<int>(0);
  kv_hptimer_set_block(mTimer, [others](const host::RealtimeContext&) { ++*others; });
  mHost.advance(80 * kMs);
  EXPECT_EQ(mCalls, (Times{40}));
  EXPECT_EQ(kv_hptimer_dispose(std::exchange(mTimer, nullptr)), 0);
  EXPECT_EQ(others.use_count(), 1);
  mHost.advance(1000 * kMs);
  EXPECT_EQ(*others, 2);
}

TEST_F(HighResolutionTimer, BadValuesAreRefusedAndTheComputationIsSetBeforeTheFirstRunAlone) {
  EXPECT_EQ(kv_hptimer_set_interval(mTimer, 0), -50);
  for (const double refused : {0.0, 1.0, std::nan(""), 1e-320}) {
    EXPECT_EQ(kv_hptimer_set_computation(mTimer, refused), -50) << refused;
  }
  EXPECT_EQ(kv_hptimer_set_computation(mTimer, 0.99), 0);
  kv_hptimer_start(mTimer);
  kv_hptimer_stop(mTimer);
  EXPECT_EQ(kv_hptimer_set_computation(mTimer, 0.5), -50);  // the count has wrapped
  std::uint64_t ns = 0;
  EXPECT_EQ(kv_hptimer_get_interval(mTimer, &ns), -1);  // and yet a success
  EXPECT_EQ(ns, 40 * kMs);
}

// A host that refuses the class of a timer's thread, as one without real-time rights does.
class RefusingHost final : public host::ForwardingHost {
 public:
  using ForwardingHost::ForwardingHost;
  int thread_policy_set(const host::ThreadTimeConstraintPolicy& /*policy*/,
                        host::ThreadRole askedRole) noexcept override {
    role = askedRole;
    return -1;
  }
  host::ThreadRole role = host::ThreadRole::ordinary;
};

TEST(HighResolutionTimerThread, AsksForTheClassOfATimerAndRunsWhenRefused) {
  host::SimulatedHost inner;
  RefusingHost host(inner);
  int calls = 0;
  kv_hptimer_s* timer = nullptr;
  kv_hptimer_create(&timer, kMs);
  kv_hptimer_set_block(timer, [&calls](const host::RealtimeContext&) { ++calls; });
  kv_hptimer_set_repeat_count(timer, 2);
  kv_hptimer_start(timer);
  kv_hptimer_join(timer);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(host.role, host::ThreadRole::timer);
  kv_hptimer_dispose(timer);
}

}  // namespace
}  // namespace velor
