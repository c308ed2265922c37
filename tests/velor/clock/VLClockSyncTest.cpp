// SPDX-License-Identifier: MIT
// The clock as a follower of MTC, and its search for loops.
#include <map>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

constexpr unsigned kRate25 = 1;
constexpr unsigned kRate30 = 3;
constexpr std::uint64_t kPiece25 = 10 * kMs;

class VLClockSync : public ClockFixture {
 protected:
  void play(const std::vector<std::uint8_t>& bytes) {
    mOutside->play(mSource->endpoint(), mHost.AudioGetCurrentHostTime(), bytes);
    mHost.settle();
  }

  // Pieces for `blocks` blocks from 01:00:SS:00 on. The parser takes the first
  // block of a stream to find its feet.
  void playBlocks(int blocks, unsigned seconds, unsigned rate = kRate25) {
    mBlockTime = velor::playBlocks(mHost, *mOutside, mSource->endpoint(), blocks, seconds, rate);
  }

  void playLocate(unsigned hours, unsigned rate = kRate25) {
    play({0xF0, 0x7F, 0x7F, 0x01, 0x01, static_cast<std::uint8_t>(rate << 5 | hours), 0, 0, 0,
          0xF7});
  }

  // The status, the time, and the reports since the last look.
  std::string seen() {
    const std::map<VLClockStatus, std::string> names = {{VLClockStopped, "stopped"},
                                                        {VLClockRolling, "rolling"},
                                                        {VLClockArmed, "armed"},
                                                        {VLClockChasing, "chasing"},
                                                        {VLClockArmedWrongFormat, "armed in vain"}};
    std::string text = names.at(clock().status()) + " at " + now();
    for (const std::string& report : mDelegate->take()) {
      text += ", " + report;
    }
    return text;
  }

  const std::shared_ptr<KVMIDIEndpoint> mSource = followSource("deck");
  std::uint64_t mBlockTime = 0;  // of the first piece of the last block
};

TEST_F(VLClockSync, TheFirstBlockStartsTheChaseAndIsStoredAndPassedOnWithTheOffset) {
  const auto destination = addDestination("desk");
  clock().setSmpteOffset(at(2, 0, 0, 0));
  takeSent(*destination);
  playBlocks(2, 10);
  EXPECT_EQ(seen(), "stopped at 00:00:00:00");
  mHost.advance(1000 * kMs);

  clock().arm();
  EXPECT_EQ(seen(), "armed at 00:00:00:00, armed");
  int told = 0;
  const auto token = clock().addObserver("status", [&told](const auto&) { ++told; });
  playBlocks(2, 20);
  EXPECT_EQ(seen(), "chasing at 01:00:20:02, started");
  EXPECT_EQ(told, 1);
  // Two frames ahead, eight pieces after the host time of the block.
  EXPECT_EQ(takeSent(*destination),
            (std::vector<OnWire>{{false, mBlockTime + 8 * kPiece25, "03:00:20:04", kRate25}}));
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "00:00:00:00");
}

TEST_F(VLClockSync, AChaseIsEndedByADisarmAndNotByAStop) {
  clock().arm();
  playBlocks(3, 20);
  seen();
  clock().stop();
  clock().setRunning(false);
  clock().start();
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType25);
  EXPECT_EQ(seen(), "chasing at 01:00:20:04");
  clock().disarm();
  EXPECT_EQ(mDelegate->take(), Reports{"disarmed"});
  mHost.settle();
  EXPECT_EQ(seen(), "stopped at 01:00:20:04, stopped");
  EXPECT_EQ(clock().time().mFlags, kSMPTETimeValid);
}

TEST_F(VLClockSync, AWrongFormatIsReportedOnceUntilTheFormatIsSetAndDoesNotCountAsAStop) {
  clock().arm();
  playBlocks(5, 20, kRate30);
  EXPECT_EQ(seen(), "armed in vain at 00:00:00:00, armed, wrong format 3");
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_EQ(seen(), "armed at 00:00:00:00");
  playBlocks(1, 21, kRate30);
  EXPECT_EQ(seen(), "chasing at 01:00:21:00, started");
  playBlocks(3, 30);
  EXPECT_EQ(seen(), "armed in vain at 01:00:21:00, wrong format 1");
  playBlocks(1, 40, kRate30);
  EXPECT_EQ(seen(), "chasing at 01:00:40:00, started");
}

TEST_F(VLClockSync, TenFramesOfSilenceLeaveTheClockArmedOnItsTimeAndMTCStartsItAgain) {
  clock().arm();
  playBlocks(4, 20);
  mHost.advance(8 * kFrame25);
  EXPECT_EQ(seen(), "chasing at 01:00:20:06, armed, started");
  mHost.advance(4 * kFrame25);
  EXPECT_EQ(seen(), "armed at 01:00:20:06, stopped");
  EXPECT_EQ(clock().time().mFlags, kSMPTETimeValid);
  playBlocks(2, 30);
  EXPECT_EQ(seen(), "chasing at 01:00:30:02, started");
}

TEST_F(VLClockSync, ALocateIsTakenByAnArmedClockAlone) {
  const auto destination = addDestination("desk");
  takeSent(*destination);
  playLocate(5);
  clock().arm();
  playLocate(6, kRate30);
  EXPECT_EQ(seen(), "armed at 00:00:00:00, armed");
  playLocate(7);
  EXPECT_EQ(seen(), "armed at 07:00:00:00, time");
  EXPECT_EQ(digits(clock().startTimeSMPTE()), "07:00:00:00");
  EXPECT_EQ(takeSent(*destination), (std::vector<OnWire>{{true, 0, "07:00:00:00", kRate25}}));
  playBlocks(2, 20);
  playLocate(8);
  EXPECT_EQ(now(), "01:00:20:02");
}

TEST_F(VLClockSync, OneSourceIsFollowedAtATime) {
  clock().arm();
  followSource("other deck");
  playBlocks(3, 20);  // the former one
  EXPECT_EQ(clock().status(), VLClockArmed);
  clock().setMIDISyncSource(nullptr);
  EXPECT_EQ(clock().MIDISyncSource(), nullptr);
  EXPECT_TRUE(mOutside->connections.empty());
}

// --- loops ---

class LoopDelegate : public RecordingDelegate {
 public:
  bool clockShouldCheckForMTCLoop(VLClock&) override { return wanted; }
  void clockDetectedMTCLoop(VLClock&, const std::shared_ptr<KVMIDIEndpoint>& source,
                            const std::shared_ptr<KVMIDIEndpoint>& destination) override {
    sources.push_back(source);
    loops.push_back(destination);
  }
  bool wanted = true;
  std::vector<std::shared_ptr<KVMIDIEndpoint>> sources;
  std::vector<std::shared_ptr<KVMIDIEndpoint>> loops;
};

class VLClockLoops : public VLClockSync {
 protected:
  VLClockLoops() { clock().setDelegate(mLoops); }

  std::vector<std::vector<std::uint8_t>> takeTokens(const KVMIDIEndpoint& destination) {
    mHost.settle();
    std::vector<std::vector<std::uint8_t>> tokens;
    std::erase_if(mOutside->sent, [&](const auto& sent) {
      if (sent.endpoint != destination.endpoint() || sent.bytes.size() != 19) {
        return false;
      }
      tokens.push_back(sent.bytes);
      return true;
    });
    return tokens;
  }

  const std::shared_ptr<LoopDelegate> mLoops = std::make_shared<LoopDelegate>();
};

TEST_F(VLClockLoops, ATokenThatComesBackNamesItsDestination) {
  const auto first = addDestination("first");
  const auto ofFormerCheck = takeTokens(*first);
  ASSERT_EQ(ofFormerCheck.size(), 1U);
  mHost.advance(200 * kMs);
  const auto second = addDestination("second");
  play(ofFormerCheck[0]);
  EXPECT_TRUE(mLoops->loops.empty());
  const auto fromFirst = takeTokens(*first);
  const auto fromSecond = takeTokens(*second);
  ASSERT_EQ(fromFirst.size(), 1U);
  ASSERT_EQ(fromSecond.size(), 1U);
  play(fromSecond[0]);
  EXPECT_EQ(mLoops->loops, std::vector{second});
  EXPECT_EQ(mLoops->sources, std::vector{mSource});
  EXPECT_EQ(clock().status(), VLClockStopped);

  // In time, just so, and too late.
  mHost.advance(99 * kMs);
  play(fromFirst[0]);
  EXPECT_EQ(mLoops->loops.size(), 2U);
  mHost.advance(2 * kMs);
  play(fromFirst[0]);
  EXPECT_EQ(mLoops->loops.size(), 2U);
}

TEST_F(VLClockLoops, ACheckUnderWaySwallowsFurtherRequestsAndNoneIsMadeUnlessItIsWanted) {
  const auto first = addDestination("first");
  const auto second = addDestination("second");
  EXPECT_EQ(takeTokens(*first).size(), 1U);
  EXPECT_EQ(takeTokens(*second).size(), 0U);
  clock().doLoopDetection();
  EXPECT_EQ(takeTokens(*first).size(), 0U);
  mHost.advance(101 * kMs);
  clock().setMIDISyncSource(mSource);
  EXPECT_EQ(takeTokens(*first).size(), 1U);
  EXPECT_EQ(takeTokens(*second).size(), 1U);
  mHost.advance(101 * kMs);
  mLoops->wanted = false;
  clock().setMIDISyncSource(mSource);
  EXPECT_EQ(takeTokens(*first).size(), 0U);
}

TEST_F(VLClockLoops, WithoutASourceNothingComesBackAndADestinationThatWentIsIgnored) {
  auto destination = addDestination("desk");
  const auto tokens = takeTokens(*destination);
  ASSERT_EQ(tokens.size(), 1U);
  clock().removeMTCDestination(destination);
  EXPECT_EQ(mOutside->ended, std::vector{destination->endpoint()});  // its port can go
  destination.reset();
  play(tokens[0]);
  EXPECT_TRUE(mLoops->loops.empty());
  mHost.advance(101 * kMs);
  clock().setMIDISyncSource(nullptr);
  const auto other = addDestination("other");
  EXPECT_EQ(takeTokens(*other).size(), 1U);
}

}  // namespace
}  // namespace velor
