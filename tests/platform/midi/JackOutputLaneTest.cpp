// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackOutputLane.h"

#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "tests/support/PacketList.h"

namespace velor::midi {
namespace {

constexpr MIDITimeStamp kStart = 100'000'000'000;
constexpr MIDITimeStamp kMs = 1'000'000;

using Written = std::pair<std::uint64_t, int>;  // the frame, and the number

// The process callback of a server with this rate and period, cycle after cycle.
class Callback {
 public:
  Callback(double rate, std::uint32_t period) {
    mCycle.frames = period;
    mCycle.nominalRate = rate;
    mCycle.framesPerNs = rate / 1e9;
    mCycle.startTime = kStart;
    mCycle.startFrame = 4000;
    mCycle.epoch = 1;
  }

  // `wander` moves the server's idea of the cycle's time, as its own loop does.
  void run(JackOutputLane& lane, double wanderNs = 0, std::size_t room = 1000) {
    const host::RealtimeContext realtime;
    jack::JackCycle cycle = mCycle;
    cycle.startTime += static_cast<MIDITimeStamp>(static_cast<std::int64_t>(wanderNs));
    lane.process(realtime, cycle,
                 [this, &cycle, &room](std::uint32_t offset, const std::uint8_t* data,
                                       std::size_t) noexcept {
                   if (room == 0) {
                     return false;
                   }
                   --room;
                   mWritten[mCount++] = {cycle.startFrame + offset, data[1]};
                   return true;
                 });
    mCycle.startFrame += mCycle.frames;
    mElapsed += mCycle.frames;
    mCycle.startTime =
        kStart + static_cast<MIDITimeStamp>(std::llround(mElapsed * 1e9 / mCycle.nominalRate));
  }
  jack::JackCycle& cycle() { return mCycle; }
  std::vector<Written> written() const {
    return {mWritten.begin(), mWritten.begin() + static_cast<std::ptrdiff_t>(mCount)};
  }

 private:
  jack::JackCycle mCycle;
  double mElapsed = 0;
  std::vector<Written> mWritten = std::vector<Written>(4096);
  std::size_t mCount = 0;
};

TEST(JackOutputLane, KeepsTheSpacingOfAListToTheSampleWhileTheServersTimeWanders) {
  // The spacings of quarter frames of 24, 25 and 30 frames a second, in ns and in
  // frames at 48 kHz.
  const std::pair<MIDITimeStamp, std::uint64_t> spacings[] = {
      {10416666, 500}, {10000000, 480}, {8333333, 400}};
  for (const auto& [ns, frames] : spacings) {
    for (const std::uint32_t period : {64U, 1024U}) {
      JackOutputLane lane;
      Callback callback(48000, period);
      lane.send(*PacketList(kStart + 80 * kMs + 12345, 0, ns, 8).get(), kStart);
      int cycle = 0;
      while (callback.written().size() < 8 && cycle < 10000) {
        callback.run(lane, 30000 * std::sin(cycle++));  // over a sample to each side
      }
      const auto written = callback.written();
      ASSERT_EQ(written.size(), 8U);
      EXPECT_NEAR(static_cast<double>(written[0].first), 4000 + (80.012345 * 48), 2.0);
      for (std::size_t i = 1; i < 8; ++i) {
        EXPECT_EQ(written[i].first - written[i - 1].first, frames);
      }
    }
  }
}

TEST(JackOutputLane, LatePacketsGoOutAtOnceAndThoseThatWaitedTooLongAreDroppedAndCounted) {
  JackOutputLane lane;
  Callback callback(48000, 480);
  lane.send(*PacketList(kStart - 15 * kMs, 1).get(), kStart - 60 * kMs);
  lane.send(*PacketList(kStart - 35 * kMs, 2).get(), kStart - 60 * kMs);
  lane.send(*PacketList(0, 3).get(), kStart - 1500 * kMs);  // waited for its connection
  lane.send(*PacketList(0, 4).get(), kStart - 2500 * kMs);
  // Late from its sender, as timecode is that goes on without its source.
  lane.send(*PacketList(kStart - 45 * kMs, 5, 10 * kMs, 6).get(), kStart - 15 * kMs);
  callback.run(lane);
  const std::vector<Written> expected = {{4000, 3}, {4000, 5}, {4000, 6}, {4000, 7},
                                         {4000, 1}, {4000, 8}, {4000, 9}, {4240, 10}};
  EXPECT_EQ(callback.written(), expected);
  EXPECT_EQ(lane.dropped(), 2U);
}

TEST(JackOutputLane, LatePacketsWaitForTheNextCycleHoweverLongCyclesAre) {
  for (const std::uint32_t period : {1024U, 2048U, 8192U}) {
    JackOutputLane lane;
    Callback callback(48000, period);
    callback.run(lane);
    lane.send(*PacketList(kStart - 60 * kMs, 0, 10 * kMs, 4).get(), kStart + kMs / 10);
    callback.run(lane);
    EXPECT_EQ(callback.written().size(), 4U) << period;
    EXPECT_EQ(lane.dropped(), 0U) << period;
  }
}

TEST(JackOutputLane, WhatFindsNoRoomInTheBufferIsFirstInTheNextCycle) {
  JackOutputLane lane;
  Callback callback(48000, 480);
  lane.send(*PacketList(kStart + kMs, 1, kMs, 3).get(), kStart);
  callback.run(lane, 0, 2);
  callback.run(lane);
  EXPECT_EQ(callback.written(), (std::vector<Written>{{4048, 1}, {4096, 2}, {4480, 3}}));
}

TEST(JackOutputLane, RefusesWhenFullAndLosesNothingThatItTook) {
  JackOutputLane lane;
  Callback callback(48000, 48000);
  for (std::uint32_t i = 0; i < JackOutputLane::kPackets; ++i) {
    EXPECT_EQ(lane.send(*PacketList(kStart + kMs, 0).get(), kStart), 0);
  }
  EXPECT_EQ(lane.send(*PacketList(kStart + kMs, 0).get(), kStart), kMIDIMessageSendErr);
  callback.run(lane);
  EXPECT_EQ(callback.written().size(), JackOutputLane::kPackets);
}

TEST(JackOutputLane, ANewCountOfFramesTakesEffectInTheMiddleOfAList) {
  JackOutputLane lane;
  Callback callback(48000, 480);
  lane.send(*PacketList(kStart + 2 * kMs, 0, 10 * kMs, 4).get(), kStart);
  callback.run(lane);
  callback.cycle().epoch = 2;
  callback.cycle().startFrame = 100;  // a server that counts anew
  for (int i = 0; i < 3; ++i) {
    callback.run(lane);
  }
  EXPECT_EQ(callback.written(), (std::vector<Written>{{4096, 0}, {196, 1}, {676, 2}, {1156, 3}}));
}

}  // namespace
}  // namespace velor::midi
