// SPDX-License-Identifier: MIT
// The times that the clock holds, who is told of them, and what goes out as MTC.
#include <algorithm>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

constexpr unsigned kRate25 = 1;

class VLClockTimes : public ClockFixture {};

TEST_F(VLClockTimes, ATimeKeepsItsDigitsInTheFormatOfTheClock) {
  clock().setTime(at(1, 2, 3, 29, kSMPTETimeType30));
  EXPECT_EQ(now(), "01:02:04:04");  // 29 frames at 25 are one second and 4
  EXPECT_EQ(clock().time().mType, kSMPTETimeType25);
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "01:02:04:04");
  clock().setTime(SMPTETime{});
  EXPECT_EQ(now(), "01:02:04:04");

  // A jump during a run is no new start.
  clock().start();
  clock().setTime(at(5, 0, 0, 0));
  advanceFrames(1);
  EXPECT_EQ(now(), "05:00:00:01");
  EXPECT_TRUE(clock().running());
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "01:02:04:04");
}

TEST_F(VLClockTimes, AFormatKeepsRealTimeCarriesAllTimesAlongAndIsTakenByAStandingClockAlone) {
  clock().setTime(at(1, 0, 0, 0));
  clock().setSmpteOffset(at(0, 0, 10, 0));
  clock().setLoopEndTime(at(0, 20, 0, 0));
  clock().setLoopStartTime(at(0, 10, 0, 0));
  clock().setSmpteFormat(kSMPTETimeType2997);
  // 3600 s are 107892 frames at 29.97, 108 short of 01:00:00:00 in its numbers; a
  // hair less in binary, and seconds are truncated to frames.
  EXPECT_EQ(now(), "00:59:56:11");
  EXPECT_EQ(digits(clock().startTimeSMPTE()), now());
  EXPECT_EQ(digits(clock().stopTime()), now());
  EXPECT_EQ(digits(clock().smpteOffset()), "00:00:09:29");
  EXPECT_EQ(digits(clock().loopStartTime()), "00:09:59:11");
  EXPECT_EQ(digits(clock().loopEndTime()), "00:19:58:23");

  for (const std::uint32_t none : {6U, 10U, 12U, 0xFFFFFFFFU}) {
    clock().setSmpteFormat(none);
    EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType2997);
  }
  clock().start();
  EXPECT_FALSE(clock().canChangeFormat());
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType2997) << "while it runs";
}

TEST_F(VLClockTimes, TheLoopStartStaysBeforeItsEndByMovingTheOtherPoint) {
  // No pointers to members: the sanitizer takes the base that declares them for a VLClock.
  const auto setStart = [](VLClock& each, const SMPTETime& t) { each.setLoopStartTime(t); };
  const auto setEnd = [](VLClock& each, const SMPTETime& t) { each.setLoopEndTime(t); };
  const struct {
    void (*set)(VLClock&, const SMPTETime&);
    SMPTETime point;
    const char* start;
    const char* end;
  } cases[] = {
      {setStart, at(0, 0, 10, 0), "00:00:10:00", "00:01:10:00"},
      {setEnd, at(0, 0, 30, 0), "00:00:10:00", "00:00:30:00"},
      {setStart, at(0, 0, 30, 0), "00:00:30:00", "00:01:30:00"},
      {setEnd, at(0, 0, 20, 0), "23:59:20:00", "00:00:20:00"},
      {setStart, at(0, 0, 5, 0, kSMPTETimeType30), "23:59:20:00", "00:00:20:00"},
      {setEnd, SMPTETime{}, "23:59:20:00", "00:00:20:00"},
      // Over midnight: the order is looked at when a point is set.
      {setStart, at(23, 59, 30, 0), "23:59:30:00", "00:00:30:00"},
      {setEnd, at(0, 0, 40, 0), "23:59:40:00", "00:00:40:00"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(digits(each.point));
    each.set(clock(), each.point);
    EXPECT_EQ(digits(clock().loopStartTime()), each.start);
    EXPECT_EQ(digits(clock().loopEndTime()), each.end);
  }
}

TEST_F(VLClockTimes, ObserversAreNotifiedOfAllThatDependsOnAChange) {
  Reports told;
  std::vector<KVObserverToken> tokens;
  for (const char* key :
       {"playRate", "playRatePercent", "status", "running", "armed", "loopStartTime", "loopEndTime",
        "stopTime", "smpteOffset", "startTimeSMPTE", "smpteFormat", "canChangeFormat", "time"}) {
    tokens.push_back(clock().addObserver(key, [&told](const auto& k) { told.emplace_back(k); }));
  }
  const auto takeTold = [&told] {
    std::sort(told.begin(), told.end());
    return std::exchange(told, {});
  };
  // One pair of its own, and one of the rate that it sets.
  clock().setPlayRatePercent(0);
  EXPECT_EQ(takeTold(), (Reports{"playRate", "playRatePercent", "playRatePercent"}));
  clock().setRunning(true);
  EXPECT_EQ(takeTold(), (Reports{"canChangeFormat", "running", "status"}));
  clock().setLoopEndTime(at(0, 5, 0, 0));
  EXPECT_EQ(takeTold(), (Reports{"loopEndTime", "loopStartTime"}));
  clock().setTime(at(0, 5, 0, 0));
  EXPECT_EQ(takeTold(), Reports{"time"});
  clock().stop();
  told.clear();
  clock().setSmpteFormat(kSMPTETimeType24);
  EXPECT_EQ(takeTold(), (Reports{"loopEndTime", "loopStartTime", "smpteFormat", "smpteOffset",
                                 "startTimeSMPTE", "stopTime"}));
}

// --- MTC ---

TEST_F(VLClockTimes, AReceiverIsLocatedWhenItJoinsAndWhenTheTimeOfAStandingClockChanges) {
  clock().setTime(at(10, 0, 0, 5));
  clock().setSmpteOffset(at(1, 0, 0, 0));
  const auto first = addDestination("first");
  // Without the offset when it joins, with it afterwards.
  EXPECT_EQ(takeSent(*first), (std::vector<OnWire>{{true, 0, "10:00:00:05", kRate25}}));
  clock().setTime(at(10, 0, 0, 5));  // no change
  EXPECT_EQ(takeSent(*first), std::vector<OnWire>{});
  const auto second = addDestination("second");
  takeSent(*second);
  clock().setTime(at(23, 30, 0, 0));
  for (const auto& destination : {first, second}) {
    EXPECT_EQ(takeSent(*destination), (std::vector<OnWire>{{true, 0, "00:30:00:00", kRate25}}));
  }
  // The same endpoint once more is one member, and is located again.
  clock().addMTCDestination(std::make_shared<KVMIDIEndpoint>(first->endpoint()));
  clock().setTime(at(0, 0, 0, 0));
  EXPECT_EQ(takeSent(*first).size(), 2U);

  clock().start();
  const auto late = addDestination("late");
  clock().setTime(at(1, 0, 0, 0));
  EXPECT_EQ(takeSent(*late), std::vector<OnWire>{});  // a running stream carries the time
}

TEST_F(VLClockTimes, TheFirstBlockCarriesTheStartTimePlusThreeFramesOnTheMomentOfThatFrame) {
  const auto destination = addDestination("desk");
  takeSent(*destination);
  clock().setSmpteOffset(at(2, 0, 0, 0));
  const std::uint64_t start = mHost.AudioGetCurrentHostTime();
  clock().start();
  advanceFrames(1);
  EXPECT_EQ(takeSent(*destination), std::vector<OnWire>{});
  EXPECT_EQ(now(), "00:00:00:01");
  advanceFrames(5);
  // Frame n of the run begins at the n+1st tick.
  EXPECT_EQ(takeSent(*destination),
            (std::vector<OnWire>{{false, start + 4 * kFrame25, "02:00:00:03", kRate25},
                                 {false, start + 6 * kFrame25, "02:00:00:05", kRate25},
                                 {false, start + 8 * kFrame25, "02:00:00:07", kRate25}}));
  // The stop says nothing of its own; its last tick, the seventh, is an odd one.
  clock().stop();
  advanceFrames(10);
  EXPECT_EQ(takeSent(*destination), std::vector<OnWire>{});
}

TEST_F(VLClockTimes, TheLastTickAfterAStopStillSendsWhenItsCountIsEven) {
  const auto destination = addDestination("desk");
  clock().start();
  advanceFrames(7);
  takeSent(*destination);
  clock().stop();
  advanceFrames(10);
  const auto sent = takeSent(*destination);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].digits, "00:00:00:09");
  // A run of an odd count, three ticks: the next one begins like the first.
  clock().start();
  advanceFrames(2);
  clock().stop();
  takeSent(*destination);
  clock().start();
  advanceFrames(1);
  EXPECT_EQ(takeSent(*destination).size(), 0U);
  advanceFrames(1);
  EXPECT_EQ(takeSent(*destination).size(), 1U);
}

}  // namespace
}  // namespace velor
