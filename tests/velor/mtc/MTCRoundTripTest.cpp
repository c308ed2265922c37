// SPDX-License-Identifier: MIT
// From a running clock over the wire to a reader, all in one process.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "Velor/mtc/MTC_Tx.h"
#include "Velor/mtc/VLMTCParser.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/midi/MIDIService.h"
#include "tests/support/MIDITest.h"

namespace velor {
namespace {

class MTCRoundTripTest : public MIDITest {};

TEST_F(MTCRoundTripTest, EachBlockArrivesWhenItsTimeIsAndSaysWhen) {
  // Seconds before midnight, so that every digit carries.
  const struct {
    std::uint32_t type;
    std::uint32_t typeRead;
    std::uint64_t quarterFrame;
  } formats[] = {
      {kSMPTETimeType24, kSMPTETimeType24, 10416666},
      {kSMPTETimeType2398, kSMPTETimeType24, 10427083},
      {kSMPTETimeType25, kSMPTETimeType25, 10000000},
      {kSMPTETimeType30, kSMPTETimeType30, 8333333},
      {kSMPTETimeType2997, kSMPTETimeType30, 8341675},
      {kSMPTETimeType30Drop, kSMPTETimeType2997Drop, 8333333},
      {kSMPTETimeType2997Drop, kSMPTETimeType2997Drop, 8341675},
  };
  auto& core = KVMIDICore::sharedCore();
  midi::MIDIPortRef port = 0;
  mTable.MIDIOutputPortCreate(core.defaultClient(), "out", &port);
  for (const auto& format : formats) {
    SMPTETime time;
    time.mType = format.type;
    ltc_set_time(time, 23, 58, 58, 0);
    const std::uint64_t start = mHost.AudioGetCurrentHostTime() + 1;
    const std::uint64_t blockPeriod = 8 * format.quarterFrame;

    std::vector<SMPTETime> sent;
    std::uint32_t reported = 0;
    const auto parser = VLMTCParser::initWithCompletionBlock(
        [&](const SMPTETime& read, std::uint64_t timestamp, double deviation) {
          ++reported;
          // The block that was sent at k holds the time of k + 1; the first is not reported.
          const SMPTETime& expected = sent.at(reported + 1);
          EXPECT_EQ(read.mHours, expected.mHours);
          EXPECT_EQ(read.mMinutes, expected.mMinutes);
          EXPECT_EQ(read.mSeconds, expected.mSeconds);
          EXPECT_EQ(read.mFrames, expected.mFrames);
          EXPECT_EQ(read.mType, format.typeRead);
          EXPECT_EQ(timestamp, start + (reported + 1) * blockPeriod);
          EXPECT_EQ(mHost.AudioGetCurrentHostTime(), timestamp + 7 * format.quarterFrame);
          // What a reader takes for 30 or 24 may be slower by a thousandth.
          EXPECT_NEAR(deviation, 0, 0.0011);
        });
    KVMIDIEndpoint destination(core.createDestination(core.defaultClient(), "in",
                                                      &VLMTCParser::readPackets, parser.get(), 5));

    mHost.advance(1);
    constexpr std::uint32_t kBlocks = 64 * 15;
    for (std::uint32_t block = 0; block < kBlocks; ++block) {
      sent.push_back(time);
      sendTime(destination, time, start + block * blockPeriod, port);
      mHost.advance(blockPeriod);
      ltc_add_frames(time, 1);
      ltc_add_frames(time, 1);
    }
    sent.push_back(time);
    mHost.advance(blockPeriod * 8);
    EXPECT_EQ(reported, kBlocks - 1);
    EXPECT_EQ(time.mHours, 0) << "over midnight";
    destination.dispose();
  }
}

}  // namespace
}  // namespace velor
