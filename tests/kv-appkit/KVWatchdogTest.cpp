// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVWatchdog.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVNanosecondsFromSeconds.h"
#include "sim/SimulatedHost.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
using Times = std::vector<std::uint64_t>;

class KVWatchdogTest : public testing::Test {
 protected:
  std::shared_ptr<KVWatchdog> make(double seconds) {
    return KVWatchdog::initWithTimeinterval(
        seconds,
        [this](KVWatchdog&, const auto&) {
          mQueue.assertCurrent();
          mFired.push_back(ns() / kMs);
        },
        mQueue);
  }
  std::uint64_t ns() const { return mHost.AudioGetCurrentHostTime() - mBegin; }

  // From where time comes: a real-time thread.
  static void validate(KVWatchdog& watchdog) {
    const host::RealtimeContext realtime;
    watchdog.validate();
  }

  host::SimulatedHost mHost;
  const std::uint64_t mBegin = mHost.AudioGetCurrentHostTime();
  host::Queue mQueue{"watched"};
  Times mFired;  // ms since the test began
};

TEST_F(KVWatchdogTest, ActsAnIntervalAfterTheLastValidationOrAtTheResumeUnlessCancelled) {
  const auto late = make(0.4);
  const auto cancelled = make(0.4);
  auto dropped = make(0.4);
  cancelled->resumeAfter(0.2);
  dropped->resumeAfter(0.2);
  validate(*cancelled);
  mHost.advance(100 * kMs);
  dropped.reset();
  mHost.advance(200 * kMs);
  cancelled->cancel();
  validate(*cancelled);
  mHost.advance(200 * kMs);
  EXPECT_TRUE(mFired.empty());  // the late one is suspended until resumed
  late->resumeAfter(0.4);
  const auto before = make(0.4);
  before->resumeAfter(0.1);
  validate(*before);
  const auto watchdog = make(0.4);
  watchdog->resumeAfter(0.4);
  for (int i = 0; i < 50; ++i) {
    mHost.advance(100 * kMs);
    validate(*watchdog);
  }
  mHost.advance(2000 * kMs);
  validate(*watchdog);  // spent
  mHost.advance(2000 * kMs);
  EXPECT_EQ(mFired, (Times{900, 900, 5900}));
}

TEST_F(KVWatchdogTest, ValidatedWhileItsActionWaitsOnABusyQueueItWaitsAgainAndDroppedItNeverActs) {
  const auto validated = make(0.4);
  auto dropped = make(0.4);
  validated->resumeAfter(0.1);
  dropped->resumeAfter(0.1);
  validate(*validated);
  mQueue.async([this] { mHost.mach_wait_until(mBegin + 1000 * kMs); });
  mHost.advance(800 * kMs);
  validate(*validated);
  dropped.reset();
  mHost.advance(2000 * kMs);
  EXPECT_EQ(mFired, (Times{1200}));
}

TEST_F(KVWatchdogTest, ANewIntervalIsDueAtOnceAndMeasuresTheNext) {
  const auto validated = make(0.4);
  validated->setTimeInterval(0.1);
  validate(*validated);
  validated->resumeAfter(0.01);
  const auto other = make(3.0);
  other->resumeAfter(0.01);
  validate(*other);
  mHost.advance(150 * kMs);
  other->setTimeInterval(2.0);
  mHost.advance(5000 * kMs);
  EXPECT_EQ(mFired, (Times{100, 150}));
}

TEST_F(KVWatchdogTest, TheActionMayDropItsOwnWatchdogAndPartsOfANanosecondAreDropped) {
  const auto alive = std::make_shared<int>(7);
  std::shared_ptr<KVWatchdog> watchdog = KVWatchdog::initWithTimeinterval(
      2.9e-9,
      [this, &watchdog, alive](KVWatchdog&, const auto&) {
        watchdog.reset();
        mFired.push_back(ns());
        EXPECT_EQ(*alive, 7) << "still whole";
      },
      mQueue);
  watchdog->validate();
  watchdog->resumeAfter(1.9e-9);
  mHost.advance(1000 * kMs);
  EXPECT_EQ(mFired, (Times{2}));
  EXPECT_EQ(alive.use_count(), 1);
}

TEST(KVNanosecondsFromSeconds, IntervalsThatNoClockHoldsHaveAlwaysPassedOrNeverPass) {
  EXPECT_EQ(KVNanosecondsFromSeconds(-1), 0U);
  EXPECT_EQ(KVNanosecondsFromSeconds(std::numeric_limits<double>::quiet_NaN()), 0U);
  EXPECT_EQ(KVNanosecondsFromSeconds(1e290), std::uint64_t{1} << 63);
}

}  // namespace
}  // namespace velor
