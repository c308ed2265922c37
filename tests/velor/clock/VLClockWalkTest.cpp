// SPDX-License-Identifier: MIT
// Hours of everything that a user can do to the clock, at random, against a model
// that knows nothing but the rules of its life.
#include <algorithm>
#include <array>
#include <functional>
#include <random>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

class VLClockWalk : public ClockFixture, public testing::WithParamInterface<std::uint64_t> {
 protected:
  VLClockWalk() : ClockFixture(GetParam()) {}

  std::uint64_t draw(std::uint64_t below) { return mRandom() % below; }
  bool drawn() { return draw(2) == 0; }

  // Often near the points, so that stops and loops are met.
  SMPTETime drawTime() {
    const auto second = static_cast<std::int32_t>(draw(6));
    const auto frame = static_cast<std::int32_t>(draw(24));
    return drawn() ? at(0, 0, second, frame, clock().smpteFormat())
                   : at(static_cast<std::int32_t>(draw(24)), static_cast<std::int32_t>(draw(60)),
                        59, frame, clock().smpteFormat());
  }

  void act() {
    const std::function<void()> actions[] = {
        [&] {
          if (mStatus == VLClockStopped) {
            mStatus = VLClockRolling;
            ++mStarts;
          }
          clock().start();
        },
        [&] {
          if (mStatus == VLClockRolling) {
            mStatus = VLClockStopped;
            ++mStops;
            // The last tick may find the stop time as well, which is told again.
            mMayStopTwice += clock().playMode() == VLPlayModeStop ? 1 : 0;
          }
          clock().stop();
        },
        [&] { clock().setTime(drawTime()); },
        [&] { clock().setPlaybackMode(kVLPlayModes[draw(kVLPlayModes.size())].playMode); },
        [&] { clock().setStopTime(drawTime()); },
        [&] { clock().setLoopStartTime(drawTime()); },
        [&] { clock().setLoopEndTime(drawTime()); },
        [&] {
          const auto format = static_cast<std::uint32_t>(draw(13));
          if (mStatus == VLClockArmedWrongFormat && (format < 6 || format == 11)) {
            mStatus = VLClockArmed;
          }
          clock().setSmpteFormat(format);
        },
        [&] { clock().setSmpteOffset(drawTime()); },
        [&] { clock().setPlayRatePercent(static_cast<double>(draw(60)) / 10 - 3); },
        [&] {
          clock().setPreroll(drawn());
          clock().setPrerollTime(static_cast<double>(draw(4)));
        },
        [&] {
          if (drawn() || mDestinations.empty()) {
            mDestinations.push_back(addDestination("desk " + std::to_string(mDestinations.size())));
          } else {
            clock().removeMTCDestination(mDestinations[draw(mDestinations.size())]);
          }
        },
        [&] {
          mStatus = mStatus == VLClockStopped ? VLClockArmed : mStatus;
          clock().arm();
        },
        [&] {
          mStops += mStatus == VLClockChasing ? 1 : 0;
          mStatus = mStatus == VLClockRolling ? VLClockRolling : VLClockStopped;
          clock().disarm();
        },
        [&] { playMTC(static_cast<unsigned>(draw(4))); },
        [&] { letTimePass(); },
        [&] { letTimePass(); },
    };
    actions[draw(std::size(actions))]();
  }

  // Three blocks, of which the parser takes at least the last two for a time.
  void playMTC(unsigned rate) {
    constexpr std::array<std::uint32_t, 4> kTypes = {kSMPTETimeType24, kSMPTETimeType25,
                                                     kSMPTETimeType2997Drop, kSMPTETimeType30};
    const bool follows = mStatus != VLClockStopped && mStatus != VLClockRolling;
    const bool canStop = canStopByItself();
    playBlocks(mHost, *mOutside, mSource->endpoint(), 3, 4, rate);
    if (!follows) {
      noteStop(canStop);
    } else if (kTypes[rate] != clock().smpteFormat()) {
      mStatus = VLClockArmedWrongFormat;
    } else if (mStatus != VLClockChasing) {
      mStatus = VLClockChasing;
      ++mStarts;
    }
  }

  bool canStopByItself() {
    return mStatus == VLClockRolling && clock().playMode() == VLPlayModeStop;
  }
  void noteStop(bool couldStop) {
    if (couldStop && clock().status() == VLClockStopped) {
      mStatus = VLClockStopped;
      ++mStops;
    }
  }

  void letTimePass() {
    const std::uint64_t ticksBefore = clock().time().mCounter;
    // Longer than a chase outlasts its source.
    const std::uint64_t duration = (1000 + draw(30'000)) * kMs;
    const bool canStop = canStopByItself();
    mHost.advance(duration);
    noteStop(canStop);
    if (mStatus == VLClockChasing) {
      mStatus = VLClockArmed;
      ++mStops;
    }
    const std::uint64_t ticks = clock().time().mCounter - ticksBefore;
    if (mStatus == VLClockRolling) {
      // A frame lasts 40.8 to 42.6 ms at 24, the longest, and 32.6 ms at 30.
      EXPECT_GE(ticks + 1, duration / (43 * kMs));
      EXPECT_LE(ticks, duration / (32 * kMs) + 2);
    }
  }

  void check() {
    mHost.settle();
    ASSERT_EQ(clock().status(), mStatus);
    const bool running = mStatus == VLClockRolling || mStatus == VLClockChasing;
    ASSERT_EQ(clock().running(), running);
    ASSERT_EQ(clock().canChangeFormat(), !running);
    ASSERT_EQ(clock().armed(), mStatus != VLClockStopped && mStatus != VLClockRolling);
    const std::uint32_t format = clock().smpteFormat();
    for (const SMPTETime& t :
         {clock().time(), clock().startTimeSMPTE(), clock().stopTime(), clock().smpteOffset(),
          clock().loopStartTime(), clock().loopEndTime()}) {
      ASSERT_EQ(t.mType, format);
      ASSERT_TRUE(isWhole(t)) << digits(t);
    }
    ASSERT_EQ(std::count(mDelegate->reports.begin(), mDelegate->reports.end(), "started"), mStarts);
    const auto stops = std::count(mDelegate->reports.begin(), mDelegate->reports.end(), "stopped");
    ASSERT_GE(stops, mStops);
    ASSERT_LE(stops, mStops + mMayStopTwice);
    mOutside->sent.clear();
  }

  std::mt19937_64 mRandom{GetParam()};
  const std::shared_ptr<KVMIDIEndpoint> mSource = followSource("deck");
  std::uint64_t mStatus = VLClockStopped;
  std::ptrdiff_t mStarts = 0;
  std::ptrdiff_t mStops = 0;
  std::ptrdiff_t mMayStopTwice = 0;
  std::vector<std::shared_ptr<KVMIDIEndpoint>> mDestinations;
};

TEST_P(VLClockWalk, NoOrderOfActionsLeavesTheRules) {
  for (int step = 0; step < 3000; ++step) {
    SCOPED_TRACE(step);
    act();
    check();
    if (HasFatalFailure() || HasNonfatalFailure()) {
      return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, VLClockWalk, testing::Range<std::uint64_t>(1, 4));

}  // namespace
}  // namespace velor
