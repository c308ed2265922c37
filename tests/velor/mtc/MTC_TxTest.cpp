// SPDX-License-Identifier: MIT
#include "Velor/mtc/MTC_Tx.h"

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <utility>
#include <vector>

#include "platform/midi/MIDIService.h"
#include "tests/support/ExactDrop.h"
#include "tests/support/LTCTime.h"
#include "tests/support/MIDITest.h"

namespace velor {
namespace {

using Bytes = std::vector<std::uint8_t>;

class MTC_TxTest : public MIDITest {
 protected:
  MTC_TxTest() {
    midi::MIDIClientRef client = 0;
    mTable.MIDIClientCreate("test", nullptr, nullptr, &client);
    mTable.MIDIOutputPortCreate(client, "out", &mPort);
  }

  Bytes secondBytes() const {
    Bytes bytes;
    for (const auto& packet : mOutside->sent) {
      EXPECT_EQ(packet.bytes.size(), 2U);
      EXPECT_EQ(packet.bytes[0], 0xF1);
      bytes.push_back(packet.bytes[1]);
    }
    return bytes;
  }

  midi::MIDIPortRef mPort = 0;
  const KVMIDIEndpoint mSynth{mOutside->appear(midi::MIDIEndpointKind::destination, "synth")};
};

TEST_F(MTC_TxTest, ABlockIsTheTimeTwoFramesLaterInEightPieces) {
  const struct {
    SMPTETime time;
    Bytes pieces;
  } vectors[] = {
      {timeOf(kSMPTETimeType30, 23, 59, 59, 29), {0x01, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x76}},
      {timeOf(kSMPTETimeType30Drop, 0, 0, 59, 28),
       {0x02, 0x10, 0x20, 0x30, 0x41, 0x50, 0x60, 0x74}},
      {timeOf(kSMPTETimeType2997, 0, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x76}},
      {timeOf(kSMPTETimeType24, 0, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70}},
      {timeOf(kSMPTETimeType2398, 1, 0, 0, 22), {0x00, 0x10, 0x21, 0x30, 0x40, 0x50, 0x61, 0x70}},
      {timeOf(kSMPTETimeType25, 17, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x61, 0x73}},
      {timeOf(kSMPTETimeType25, 23, 59, 59, 22), {0x08, 0x11, 0x2B, 0x33, 0x4B, 0x53, 0x67, 0x73}},
      {timeOf(kSMPTETimeType2997Drop, 12, 34, 56, 18),
       {0x04, 0x11, 0x28, 0x33, 0x42, 0x52, 0x6C, 0x74}},
  };
  for (const auto& vector : vectors) {
    mOutside->sent.clear();
    sendTime(mSynth, vector.time, 1, mPort);
    EXPECT_EQ(secondBytes(), vector.pieces);
  }
  for (const std::uint8_t frames : Bytes{0x02, 0x03}) {
    const ExactDrop exact(frames == 0x03);
    mOutside->sent.clear();
    sendTime(mSynth, timeOf(kSMPTETimeType2997Drop, 0, 0, 59, 29), 1, mPort);
    EXPECT_EQ(secondBytes(), Bytes({frames, 0x10, 0x20, 0x30, 0x41, 0x50, 0x60, 0x74}));
  }
}

TEST_F(MTC_TxTest, PiecesAreAQuarterFrameApartAndBlocksJoinWithoutASeam) {
  // 1e9 / 4 over 24, 25, 30, 29.97 and 24000 / 1001, cut.
  constexpr std::pair<std::uint32_t, std::uint64_t> kIntervals[] = {
      {kSMPTETimeType24, 10416666},    {kSMPTETimeType25, 10000000},
      {kSMPTETimeType30Drop, 8333333}, {kSMPTETimeType30, 8333333},
      {kSMPTETimeType2997, 8341675},   {kSMPTETimeType2997Drop, 8341675},
      {kSMPTETimeType2398, 10427083}};
  for (const auto& [type, q] : kIntervals) {
    mOutside->sent.clear();
    const std::uint64_t start = 5'000'000'000'000;
    sendTime(mSynth, timeOf(type, 1, 2, 3, 4), start, mPort);
    sendTime(mSynth, timeOf(type, 1, 2, 3, 6), start + 8 * q, mPort);
    ASSERT_EQ(mOutside->sent.size(), 16U);
    for (std::size_t i = 0; i < 16; ++i) {
      EXPECT_EQ(mOutside->sent[i].time, start + (8 + i) * q);
      EXPECT_EQ(mOutside->sent[i].endpoint, mSynth.endpoint());
      EXPECT_EQ(mOutside->sent[i].port, mPort);
    }
  }
}

TEST_F(MTC_TxTest, AFullFrameCarriesTheTimeAsItIs) {
  const struct {
    SMPTETime time;
    std::array<std::uint8_t, 4> digits;
  } vectors[] = {
      {timeOf(kSMPTETimeType25, 1, 2, 3, 4), {0x21, 0x02, 0x03, 0x04}},
      {timeOf(kSMPTETimeType24, 23, 59, 59, 23), {0x17, 0x3B, 0x3B, 0x17}},
      {timeOf(kSMPTETimeType30Drop, 10, 0, 0, 2), {0x4A, 0x00, 0x00, 0x02}},
      {timeOf(kSMPTETimeType2997, 1, 0, 0, 0), {0x61, 0x00, 0x00, 0x00}},
      {timeOf(40, 1, 0, 0, 0), {0x21, 0x00, 0x00, 0x00}},
  };
  midi::MIDIPacketList list;
  for (const auto& [time, digits] : vectors) {
    EXPECT_EQ(mtc_full_frame_from_smpte_time(&time, &list), 0);
    ASSERT_EQ(list.numPackets, 1U);
    const midi::MIDIPacket& packet = list.packet[0];
    EXPECT_EQ(midi::MIDITimeStamp{packet.timeStamp}, 0U);
    EXPECT_EQ(
        Bytes(packet.data, packet.data + packet.length),
        (Bytes{0xF0, 0x7F, 0x7F, 0x01, 0x01, digits[0], digits[1], digits[2], digits[3], 0xF7}));
  }
  midi::MIDIPacketListInit(&list);
  SMPTETime invalid = timeOf(kSMPTETimeType25, 1, 2, 3, 4);
  invalid.mFlags = kSMPTETimeRunning;
  EXPECT_EQ(mtc_full_frame_from_smpte_time(&invalid, &list), 0);
  EXPECT_EQ(list.numPackets, 0U);
}

TEST_F(MTC_TxTest, ALoopTokenIsLegalSysExAndSpellsItsValue) {
  std::set<std::uint32_t> tokens;
  for (int i = 0; i < 64; ++i) {
    mOutside->sent.clear();
    const std::uint32_t token = sendLoopDetectionToken(mSynth, mPort);
    tokens.insert(token);
    EXPECT_EQ(token & 0x80808080U, 0U);
    ASSERT_EQ(mOutside->sent.size(), 1U);
    EXPECT_EQ(mOutside->sent[0].time, 0U);
    EXPECT_EQ(mOutside->sent[0].bytes,
              (Bytes{0xF0, 0x7F, 0x7F, 0x04, 0x05, 0x03, 0x04, 0x00, 0x39, 0x38, 0x22, 0x71, 0x11,
                     0x61, static_cast<std::uint8_t>(token / 0x1000000),
                     static_cast<std::uint8_t>(token / 0x10000 % 0x100),
                     static_cast<std::uint8_t>(token / 0x100 % 0x100),
                     static_cast<std::uint8_t>(token % 0x100), 0xF7}));
  }
  EXPECT_GT(tokens.size(), 60U);
}

}  // namespace
}  // namespace velor
