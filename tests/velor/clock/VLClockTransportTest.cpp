// SPDX-License-Identifier: MIT
// What moves the clock: starts, stops, points, pre-roll, the length of a tick.
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "sim/ForwardingHost.h"
#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

class VLClockTransport : public ClockFixture {};

TEST_F(VLClockTransport, AStopByTheUserEndsOneFrameOnAndIsReportedToItsCaller) {
  clock().setTime(at(0, 0, 5, 0));
  mDelegate->take();
  clock().start();
  EXPECT_EQ(mDelegate->take(), Reports{"started"});  // before any job of the main queue
  advanceFrames(10);
  EXPECT_EQ(now(), "00:00:05:10");
  clock().stop();
  EXPECT_EQ(mDelegate->take(), Reports{"stopped"});
  EXPECT_EQ(now(), "00:00:05:11");
  EXPECT_EQ(clock().time().mFlags, kSMPTETimeValid);
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "00:00:05:00");
  advanceFrames(5);
  EXPECT_EQ(now(), "00:00:05:11");
  EXPECT_EQ(mDelegate->take(), Reports{});
}

TEST_F(VLClockTransport, AStopAtTheStopTimeEndsTwoFramesPastItAndIsReportedOnTheMainQueue) {
  clock().setTime(at(0, 0, 9, 24));
  clock().setStopTime(at(0, 0, 10, 0));
  clock().setPlayMode(VLPlayModeStop);
  clock().start();
  mDelegate->take();
  Reports atStop;
  const auto token = clock().addObserver("status", [&](const auto&) {
    atStop = mDelegate->reports;
    atStop.push_back(clock().running() ? "still runs" : "observed");
  });
  advanceFrames(20);
  EXPECT_EQ(now(), "00:00:10:02");
  EXPECT_EQ(clock().time().mFlags, kSMPTETimeValid);
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "00:00:09:24");
  EXPECT_EQ(atStop, Reports{"observed"});  // observers first, then the delegate
  EXPECT_EQ(mDelegate->take(), Reports{"stopped"});

  // A clock that is past the point runs on.
  clock().setTime(at(0, 0, 10, 1));
  clock().start();
  advanceFrames(100);
  EXPECT_EQ(now(), "00:00:14:01");
  // So does one whose point is of another format.
  clock().setStopTime(at(0, 0, 15, 0, kSMPTETimeType30));
  advanceFrames(50);
  EXPECT_EQ(now(), "00:00:16:01");
}

TEST_F(VLClockTransport, AChangeByTheDelegateOnAStopComesAfterTheLastTick) {
  struct Returns : RecordingDelegate {
    void clockDidStopPlaying(VLClock& clock) override { clock.setTime(at(0, 0, 1, 0)); }
  };
  const auto delegate = std::make_shared<Returns>();
  clock().setDelegate(delegate);
  clock().setStopTime(at(0, 0, 0, 10));
  clock().setPlayMode(VLPlayModeStop);
  clock().start();
  advanceFrames(40);
  EXPECT_EQ(now(), "00:00:01:00");
}

TEST_F(VLClockTransport, ALoopHoldsEachFrameFromStartToEndForOneTick) {
  clock().setLoopEndTime(at(0, 0, 2, 0));
  clock().setLoopStartTime(at(0, 0, 1, 0));
  clock().setTime(at(0, 0, 1, 23));
  clock().setPlayMode(VLPlayModeLoop);
  clock().start();
  Reports seen;
  for (int i = 0; i < 5; ++i) {
    advanceFrames(1);
    seen.push_back(now());
  }
  EXPECT_EQ(seen,
            (Reports{"00:00:01:24", "00:00:02:00", "00:00:01:00", "00:00:01:01", "00:00:01:02"}));
  // 26 frames from start to end: after as many ticks it is where it was.
  advanceFrames(26 * 1000);
  EXPECT_EQ(now(), "00:00:01:02");

  // One frame alone: it stands there, and still runs.
  makeClock();
  clock().setPlayMode(VLPlayModeLoop);
  clock().start();
  advanceFrames(500);
  EXPECT_EQ(now(), "00:00:00:00");
  EXPECT_TRUE(clock().running());
}

TEST_F(VLClockTransport, APlayModeSetDuringARunHoldsFromTheNextTick) {
  clock().setStopTime(at(0, 0, 1, 0));
  clock().start();
  advanceFrames(30);  // past the point, which does not count in this mode
  clock().setTime(at(0, 0, 0, 20));
  clock().setPlayMode(VLPlayModeTimeOfDay);
  advanceFrames(1);
  EXPECT_EQ(now(), "00:00:00:21");  // the wall clock counts at a start alone
  clock().setPlaybackMode(VLPlayModeStop);
  clock().setPlaybackMode(12345);  // is none
  advanceFrames(20);
  EXPECT_EQ(now(), "00:00:01:02");
}

TEST_F(VLClockTransport, AStopInsideThePrerollGoesBackAndALaterOneStays) {
  const struct {
    std::uint64_t stopAfter;  // frames
    const char* endsOn;
    Reports reports;
  } cases[] = {{124, "01:00:00:00", {"time", "stopped"}}, {150, "01:00:01:01", {"stopped"}}};
  for (const auto& c : cases) {
    clock().setTime(at(1, 0, 0, 0));
    clock().setPreroll(true);
    clock().setPrerollTime(5);
    clock().start();
    EXPECT_EQ(now(), "00:59:55:00");
    EXPECT_EQ(digits(clock().startTimeSMPTE()), "01:00:00:00");
    mHost.settle();
    advanceFrames(c.stopAfter);
    mDelegate->take();
    clock().stop();
    EXPECT_EQ(mDelegate->take(), c.reports);
    EXPECT_EQ(now(), c.endsOn);
  }
}

TEST_F(VLClockTransport, APrerollWrapsOverMidnightAndAbidesByItsLimits) {
  clock().setTime(at(0, 0, 2, 0));
  clock().setPreroll(true);
  clock().setPrerollTime(5);
  clock().start();
  EXPECT_EQ(now(), "23:59:57:00");
  clock().stop();

  clock().setPrerollTime(90);
  EXPECT_EQ(clock().prerollTime(), 60);
  clock().setPrerollTime(-1);
  EXPECT_EQ(clock().prerollTime(), 0);
  clock().start();
  EXPECT_EQ(now(), "00:00:02:00");  // none of 0 s
  EXPECT_THROW(clock().setPrerollTime(std::nan("")), KVException);
}

TEST_F(VLClockTransport, TimeOfDayStartsOnTheWallClockWithoutPreroll) {
  setenv("TZ", "UTC0", 1);
  tzset();
  mHost.setWallClock({13 * 3600 + 14 * 60 + 15, 519'999});
  clock().setPlayMode(VLPlayModeTimeOfDay);
  clock().setPreroll(true);
  clock().setPrerollTime(5);
  clock().setTime(at(1, 0, 0, 0));
  clock().start();
  EXPECT_EQ(now(), "13:14:15:12");  // 12.99 frames
  EXPECT_TRUE(clock().running());
  mHost.setWallClock({0, 0});  // it is not read again
  advanceFrames(25);
  EXPECT_EQ(now(), "13:14:16:12");
  clock().stop();
  EXPECT_EQ(now(), "13:14:16:13");  // there was no pre-roll to go back from
}

TEST_F(VLClockTransport, ARateChangesTheLengthOfATickAtTheNextWakeUpAndLosesNoFrame) {
  const struct {
    std::uint32_t format;
    double percent;
    std::uint64_t tick;  // ns, worked out by hand from the length of a frame
  } cases[] = {{kSMPTETimeType24, 5, 40849672},       {kSMPTETimeType25, -5, 40816326},
               {kSMPTETimeType30Drop, 2, 32679738},   {kSMPTETimeType2997, 0, 33366700},
               {kSMPTETimeType2997Drop, 2, 32712450}, {kSMPTETimeType2398, -2, 42559523}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.format << " at " << c.percent);
    clock().setSmpteFormat(c.format);
    clock().setPlayRatePercent(c.percent);
    clock().setTime(at(0, 0, 0, 0, c.format));
    clock().start();
    mHost.advance(c.tick * 20 - 1);
    EXPECT_EQ(clock().time().mFrames, 19);
    mHost.advance(1);
    EXPECT_EQ(clock().time().mFrames, 20);
    clock().stop();
  }

  clock().setSmpteFormat(kSMPTETimeType25);
  clock().setPlayRate(1.0);
  clock().setTime(at(0, 0, 0, 0));
  clock().start();
  mHost.advance(kFrame25 / 2);
  clock().setPlayRate(0.5);
  mHost.advance(kFrame25 / 2);  // the sleep under way keeps its length
  EXPECT_EQ(now(), "00:00:00:01");
  mHost.advance(2 * kFrame25);
  EXPECT_EQ(now(), "00:00:00:02");
}

TEST_F(VLClockTransport, RatesThatAreNotNumbersAreRefusedOrIgnored) {
  for (const double bad : {0.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    EXPECT_THROW(clock().setPlayRate(bad), KVException);
  }
  clock().setPlayRatePercent(std::nan(""));
  EXPECT_EQ(clock().playRate(), 1.0);
  // A rate whose tick has no length leaves the timer as it was.
  clock().setPlayRate(-1);
  clock().start();
  advanceFrames(10);
  EXPECT_EQ(now(), "00:00:00:10");
}

// Holds a real-time thread up between its reads of the time, two and two.
class HeldUpHost final : public host::ForwardingHost {
 public:
  HeldUpHost(Host& inner, const std::vector<std::uint64_t>& delays)
      : ForwardingHost(inner), mDelays(delays) {}
  std::uint64_t AudioGetCurrentHostTime() const noexcept override {
    if (host::realtimeDepth() == 0) {
      return ForwardingHost::AudioGetCurrentHostTime();
    }
    const bool isSecond = mReads % 2 == 1;
    mTime += isSecond && mReads / 2 < mDelays.size() ? mDelays[mReads / 2] * kMs : 1;
    ++mReads;
    return mTime;
  }

 private:
  const std::vector<std::uint64_t>& mDelays;  // ms
  mutable std::size_t mReads = 0;
  mutable std::uint64_t mTime = 0;
};

TEST_F(VLClockTransport, AThreadHeldUpForLongCountsItsTicksAgain) {
  const struct {
    std::vector<std::uint64_t> delays;  // ms between the two reads of each tick
    std::uint32_t count;                // of ticks after the last of them
  } cases[] = {{{0, 0, 200}, 1},
               {{0, 0, 199}, 3},
               {{0, 106, 106, 30}, 2},
               {{0, 0, static_cast<std::uint64_t>(-201)}, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.delays.back());
    mClock.reset();
    const HeldUpHost heldUp(mHost, c.delays);
    makeClock();
    clock().start();
    advanceFrames(c.delays.size());
    EXPECT_EQ(clock().time().mCounter, c.count);
    EXPECT_EQ(clock().time().mFrames, static_cast<std::int16_t>(c.delays.size()));
    clock().stop();
    mClock.reset();
  }
}

// Wakes the clock's thread late at one tick.
class LateHost final : public host::ForwardingHost {
 public:
  LateHost(Host& inner, std::uint64_t lateness) : ForwardingHost(inner), mLateness(lateness) {}
  void mach_wait_until(std::uint64_t deadline) noexcept override {
    ForwardingHost::mach_wait_until(deadline + (++mWaits == 10 ? mLateness : 0));
  }

 private:
  const std::uint64_t mLateness;  // ns
  int mWaits = 0;
};

TEST_F(VLClockTransport, ABlockDoesNotOvertakeOneThatWasHeldUp) {
  for (const std::uint64_t lateness : {9, 12, 35}) {
    SCOPED_TRACE(lateness);
    mClock.reset();
    const LateHost late(mHost, lateness * kMs);
    makeClock();
    const auto desk = addDestination("desk");
    clock().start();
    advanceFrames(40);
    auto sent = takeSent(*desk);
    sent.erase(sent.begin());  // the locate
    for (std::size_t i = 1; i < sent.size(); ++i) {
      EXPECT_GT(sent[i].time - sent[i - 1].time, 7 * kFrame25 / 4) << sent[i].digits;
    }
    EXPECT_EQ(sent.back().time - sent.front().time, (sent.size() - 1) * 2 * kFrame25);
    clock().stop();
    mClock.reset();
  }
}

TEST_F(VLClockTransport, TheMainQueueIsCalledAfterEachChangeAndNeverFlooded) {
  std::vector<std::string> seen;
  clock().setProceedBlock([&seen](const SMPTETime* time) { seen.push_back(digits(*time)); });
  clock().setTime(at(0, 0, 1, 0));
  clock().setTime(at(0, 0, 1, 0));  // no change is told, too
  EXPECT_TRUE(seen.empty());
  mHost.settle();
  EXPECT_EQ(seen, (Reports{"00:00:01:00", "00:00:01:00"}));
  seen.clear();
  clock().start();
  advanceFrames(3);
  EXPECT_EQ(seen, (Reports{"00:00:01:01", "00:00:01:02", "00:00:01:03"}));

  // The main thread is away for 40 s of ticks.
  seen.clear();
  mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + 1000 * kFrame25);
  mHost.settle();
  EXPECT_LT(seen.size(), 100U);
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen.back(), "00:00:41:03");
  seen.clear();
  advanceFrames(2);
  EXPECT_EQ(seen.size(), 2U);

  clock().setProceedBlock(nullptr);
  advanceFrames(1);
  EXPECT_EQ(seen.size(), 2U);
}

TEST_F(VLClockTransport, AClockThatGoesLeavesNothingBehindOnTheMainQueue) {
  int calls = 0;
  clock().setProceedBlock([&calls](const SMPTETime*) { ++calls; });
  clock().start();
  mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + 10 * kFrame25);
  mClock.reset();
  mHost.advance(1000 * kMs);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(mDelegate->take(), Reports{"started"});
}

}  // namespace
}  // namespace velor
