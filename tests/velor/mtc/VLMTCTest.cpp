// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTC.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "tests/support/ExactDrop.h"
#include "tests/support/MIDITest.h"
#include "tests/velor/mtc/MTCPackets.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint64_t kQuarterFrame = 10 * kMs;
constexpr std::uint64_t kBlock = 8 * kQuarterFrame;
constexpr unsigned kRate25 = 1;

using Packet = std::pair<std::uint64_t, std::uint8_t>;  // its time and piece

class VLMTCTest : public MIDITest {
 protected:
  VLMTCTest() {
    mTable.MIDIClientCreate("test", nullptr, nullptr, &mClient);
    mTable.MIDIInputPortCreate(
        mClient, "in",
        [](const midi::MIDIPacketList* packets, void* refCon, void*) {
          auto& test = *static_cast<VLMTCTest*>(refCon);
          midi::forEachPacket(*packets, [&test](const midi::MIDIPacket& packet) {
            const midi::MIDITimeStamp due = packet.timeStamp;  // stands unaligned
            EXPECT_LE(test.now(), due + test.mLatest);
            test.mPackets.push_back({due, packet.data[1]});
          });
        },
        this, &mPort);
    make();
  }
  ~VLMTCTest() override {
    dispose();
    mTable.MIDIPortDispose(mPort);  // what is still on its way finds no test any more
  }

  void make() {
    dispose();
    EXPECT_EQ(VLMTCCreate(&mMtc), 0);
    midi::MIDIEndpointRef source = 0;
    EXPECT_EQ(VLMTCCreateSource(&source, "LTC Reader 1", mClient), 0);
    mTable.MIDIPortConnectSource(mPort, source, nullptr);
    VLMTCSetSource(mMtc, source);
    VLMTCSetStateCallback(mMtc, &VLMTCTest::note, this);
  }

  void dispose() {
    if (mMtc != nullptr) {
      VLMTCDispose(std::exchange(mMtc, nullptr));
    }
  }

  static void note(VLMTC* mtc, VLMTCState state, void* refCon) {
    auto& test = *static_cast<VLMTCTest*>(refCon);
    test.mStates += (test.mStates.empty() ? "" : " ") + stringFromFourCC(state);
    EXPECT_EQ(mtc, test.mMtc);
    if (state == test.mDisposeOn) {
      test.dispose();
    }
  }

  // Times from a frame on, every second one, and the two frames after the last.
  void readFrom(std::int32_t frame, int count, std::uint64_t block = kBlock,
                std::uint32_t type = kSMPTETimeType25) {
    for (int i = 0; i < count; ++i) {
      const SMPTETime time = ltc_smptetime_from_frame_number(frame + 2 * i, type);
      {
        const host::RealtimeContext realtime;
        EXPECT_EQ(VLMTCSendTime(realtime, mMtc, &time, now()), mStatus);
      }
      mHost.advance(block);
    }
  }

  // What came since the last look: `count` blocks on the grid that begins at `start`,
  // with the times of `frame` and every second one on.
  void expectBlocks(std::uint64_t start, std::int32_t frame, std::size_t count,
                    std::uint64_t quarterFrame = kQuarterFrame) {
    std::vector<Packet> expected;
    for (; expected.size() < count * 8; frame += 2) {
      const auto n = static_cast<unsigned>(frame);
      for (const std::uint8_t piece :
           quarterFrames(n / 90000, n / 1500 % 60, n / 25 % 60, n % 25, kRate25)) {
        expected.push_back({start + expected.size() * quarterFrame, piece});
      }
    }
    EXPECT_TRUE(std::exchange(mPackets, {}) == expected);
  }

  std::uint64_t now() const { return mHost.AudioGetCurrentHostTime(); }
  SMPTETime timeSent() const {
    SMPTETime time;
    EXPECT_EQ(VLMTCGetTime(mMtc, &time, nullptr, nullptr), 0);
    return time;
  }
  std::int32_t frameSent() const { return ltc_frame_number_from_smptetime(timeSent()); }
  std::string told() { return std::exchange(mStates, {}); }
  // What was told since the last look, and the flags.
  std::string seen() {
    bool reading = false;
    bool freewheeling = false;
    EXPECT_EQ(VLMTCGetTime(mMtc, nullptr, &reading, &freewheeling), 0);
    return told() + (reading ? " reading" : " idle") + (freewheeling ? " freewheeling" : "");
  }
  std::string seenAfter(std::uint64_t duration) {
    mHost.advance(duration);
    return seen();
  }

  midi::MIDIClientRef mClient = 0;
  midi::MIDIPortRef mPort = 0;
  VLMTC* mMtc = nullptr;
  std::vector<Packet> mPackets;
  std::string mStates;
  std::uint32_t mDisposeOn = 0;
  std::uint64_t mLatest = kMs / 2;  // of a piece, after its time: the leeway of the timer
  std::int32_t mStatus = 0;         // that sending gives
};

TEST_F(VLMTCTest, ABlockHoldsTheTimeTwoFramesOnAtTheMeasuredRate) {
  // A quarter of a frame at 24.9 frames per second, to the whole nanosecond.
  constexpr std::uint64_t kMeasured = 10'040'160;
  EXPECT_EQ(VLMTCSetFramerate(mMtc, 24.9), 0);
  const std::uint64_t start = now();
  readFrom(22, 5, 8 * kMeasured);
  EXPECT_EQ(seen(), "rdst dcfr reading") << "of 25, after the format of a new record";
  EXPECT_EQ(frameSent(), 32);
  mHost.advance(8 * kMeasured - 1);
  expectBlocks(start + 8 * kMeasured, 24, 5, kMeasured);
}

TEST_F(VLMTCTest, AFreewheelGoesOnWithoutASeamForItsTime) {
  const std::uint64_t start = now();
  readFrom(89990, 10);  // over the hour
  // The last was read 80 ms ago; silence is known 160 ms after it.
  EXPECT_EQ(seenAfter(kBlock - 1), "rdst dcfr reading");
  EXPECT_EQ(seenAfter(1), "fwst reading freewheeling");
  EXPECT_EQ(seenAfter(5000 * kMs - 1), " reading freewheeling");
  EXPECT_EQ(seenAfter(1), "fwsp idle");
  EXPECT_EQ(seenAfter(3600'000 * kMs), " idle");
  // Each 80 ms from the silence on, and 5000 ms later is behind the 63rd.
  expectBlocks(start + kBlock, 89992, 10 + 63);
}

TEST_F(VLMTCTest, ExactDropNumbersAreTwoFramesApartInFreewheelToo) {
  const ExactDrop exact;
  constexpr std::int32_t kMinute = 1800;  // number of 00:01:00;02
  for (const std::int32_t begin : {kMinute - 12, kMinute - 11}) {
    make();
    EXPECT_EQ(VLMTCSetFramerate(mMtc, 29.97), 0);
    readFrom(begin, 2, 66'733'400, kSMPTETimeType2997Drop);
    EXPECT_EQ(frameSent(), begin + 4);
    EXPECT_EQ(seenAfter(10 * 66'733'400), "rdst dcfr fwst reading freewheeling");
    EXPECT_GT(frameSent(), kMinute + 2);
    EXPECT_EQ((frameSent() - begin) % 2, 0);
  }
}

// LTC of 24 frames per second can read as 25 while its speed changes.
TEST_F(VLMTCTest, AFreewheelCountsInTheFormatThatWasReadLast) {
  readFrom(20, 1, kBlock, kSMPTETimeType24);
  readFrom(22, 1, kBlock, kSMPTETimeType25);
  mHost.advance(kBlock + kMs);
  EXPECT_EQ(stringFromSMPTETime(timeSent()), "00:00:01:01");
  EXPECT_EQ(timeSent().mType, kSMPTETimeType25);
}

TEST_F(VLMTCTest, WhenLTCReturnsAllButItsFirstTimeGoesOutAndNothingGoesBack) {
  const std::uint64_t start = now();
  readFrom(100, 2);
  mHost.advance(10 * kBlock);
  told();
  readFrom(124, 1);
  EXPECT_EQ(seen(), "resm rdst reading");
  EXPECT_EQ(frameSent(), 122) << "of the freewheel's last block";
  expectBlocks(start + kBlock, 102, 11);
  const std::uint64_t second = now();
  readFrom(126, 2);
  EXPECT_EQ(seenAfter(kBlock), "fwst reading freewheeling");
  // The end of the first freewheel comes and must not touch the second one.
  EXPECT_EQ(seenAfter(5000 * kMs - 1), " reading freewheeling");
  EXPECT_EQ(seenAfter(1), "fwsp idle");
  mHost.advance(10 * kBlock);
  expectBlocks(second + kBlock, 128, 2 + 63);

  // A time that is not sent leaves its format to be reported again. The end of the
  // freewheel comes while times are read, and must not touch that.
  readFrom(0, 1);
  mHost.advance(kBlock);
  told();
  readFrom(60, 66, kBlock, kSMPTETimeType30);
  EXPECT_EQ(told(), "resm rdst dcfr dcfr");
}

TEST_F(VLMTCTest, NoFreewheelTimeEndsAtOnceAndANegativeOneOnRequest) {
  EXPECT_EQ(VLMTCSetFreewheelTime(mMtc, 0), 0);
  const std::uint64_t start = now();
  readFrom(0, 3);
  EXPECT_EQ(VLMTCStopFreewheeling(mMtc), -1) << "while reading";
  EXPECT_EQ(seenAfter(10 * kBlock), "rdst dcfr fwsp fwsp idle");
  expectBlocks(start + kBlock, 2, 3);

  EXPECT_EQ(VLMTCSetFreewheelTime(mMtc, -0.5), 0);
  const std::uint64_t second = now();
  readFrom(0, 1);
  mHost.advance(45'000 * kBlock + kMs);  // an hour
  bool freewheeling = false;
  EXPECT_EQ(VLMTCIsFreewheeling(mMtc, &freewheeling), 0);
  EXPECT_TRUE(freewheeling);
  EXPECT_EQ(VLMTCStopFreewheeling(mMtc), 0);
  EXPECT_EQ(VLMTCStopFreewheeling(mMtc), -1);
  mHost.advance(10 * kBlock);
  EXPECT_EQ(told(), "rdst fwst fwsp");
  expectBlocks(second + kBlock, 2, 45'000 + 1);
}

TEST_F(VLMTCTest, ALateTimeFindsTheTimerSilentAndTheNextOnesPutItOff) {
  const std::uint64_t start = now();
  readFrom(0, 3);
  // Later than the timer by half of a block, and sooner than silence.
  mHost.advance(kBlock / 2);
  const std::uint64_t late = now();
  readFrom(6, 1, kBlock - 1);
  expectBlocks(start + kBlock, 2, 3);
  mHost.advance(1);
  readFrom(8, 2);
  mHost.advance(5 * kBlock);
  expectBlocks(late + kBlock, 8, 3 + 4);
}

TEST_F(VLMTCTest, ABlockDoesNotOvertakeOneWhoseTimeWasReadLate) {
  for (const std::uint64_t lateness : {9, 12, 35}) {
    SCOPED_TRACE(lateness);
    readFrom(0, 1);
    mHost.advance(lateness * kMs);
    readFrom(2, 1, kBlock - lateness * kMs);
    const std::uint64_t inTime = now();
    readFrom(4, 8);
    mHost.advance(kBlock - 1);
    const std::vector<Packet> pieces = std::exchange(mPackets, {});
    for (std::size_t i = 0; i < pieces.size(); ++i) {
      EXPECT_EQ(pieces[i].second >> 4, i % 8);
    }
    EXPECT_EQ(pieces.back().first, inTime + 8 * kBlock + 7 * kQuarterFrame) << "in time again";
    make();
  }
}

TEST_F(VLMTCTest, WhatIsOutOfRangeIsRefusedAndChangesNothing) {
  double value = 0;
  EXPECT_EQ(VLMTCSetFramerate(mMtc, 29.97), 0);
  for (const double bad : {60.0, 31.01, 22.99, std::nan(""), HUGE_VAL}) {
    EXPECT_EQ(VLMTCSetFramerate(mMtc, bad), -1);
  }
  EXPECT_EQ(VLMTCGetFramerate(mMtc, &value), 0);
  EXPECT_NEAR(value, 29.97, 1e-5);
  for (const double bad :
       {HUGE_VAL, -HUGE_VAL, std::nan(""), std::numeric_limits<double>::denorm_min()}) {
    EXPECT_EQ(VLMTCSetFreewheelTime(mMtc, bad), -50);
  }
  EXPECT_EQ(VLMTCGetFreewheelTime(mMtc, &value), 0);
  EXPECT_EQ(value, 5.0);

  // Times go out at the very highest rate too.
  EXPECT_EQ(VLMTCSetFramerate(mMtc, 31.0), 0);
  readFrom(0, 3);
  mHost.advance(kBlock);
  EXPECT_EQ(told(), "rdst dcfr");
  EXPECT_EQ(mPackets.size(), 24U);

  // What the service refuses is known with the time after it.
  VLMTCSetSource(mMtc, 0);
  readFrom(0, 1);
  mStatus = midi::kMIDIUnknownEndpoint;
  readFrom(2, 1);
}

TEST_F(VLMTCTest, NothingIsSentOrReportedOnceTheRecordIsDisposedOf) {
  mLatest = 2 * kBlock;  // of a freewheel from before a time that was not sent
  for (const VLMTCState state :
       {kVLMTCDidStartReading, kVLMTCDidChangeFramerate, kVLMTCDidStartFreewheel,
        kVLMTCDidStopFreewheel, kVLMTCDidResume}) {
    make();
    VLMTCSetFreewheelTime(mMtc, 0.3);
    mDisposeOn = state;
    for (int i = 0; i < 3 && mMtc != nullptr; ++i) {
      readFrom(0, 1, (i == 1 ? 600 : 300) * kMs);
    }
    EXPECT_EQ(mMtc, nullptr) << "disposed of in the report " << stringFromMTCState(state);
    told();
    mPackets.clear();
    const std::uint64_t disposed = now();
    mHost.advance(6000 * kMs);
    EXPECT_EQ(told(), "");
    // What was sent before waits in the service for its time, two blocks at most.
    EXPECT_TRUE(mPackets.empty() || mPackets.back().first < disposed + 2 * kBlock);
  }
}

}  // namespace
}  // namespace velor
