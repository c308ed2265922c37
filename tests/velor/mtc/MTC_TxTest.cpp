// SPDX-License-Identifier: MIT
#include "Velor/mtc/MTC_Tx.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "kvtimecode/ltc_utils.h"
#include "platform/host/Realtime.h"
#include "platform/midi/MIDIService.h"
#include "tests/support/MIDITest.h"

namespace velor {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Format {
  std::uint32_t type;
  int labels;  // in a second
  bool drop;
  unsigned rateCode;                   // of the MTC recommendation, by the fold
  std::uint64_t quarterFrameInterval;  // ns
};
// The intervals: 1e9 / 4 over 24, 25, 30, 29.97 and 24000 / 1001, cut.
constexpr Format kFormats[] = {
    {kSMPTETimeType24, 24, false, 0, 10416666},   {kSMPTETimeType25, 25, false, 1, 10000000},
    {kSMPTETimeType30Drop, 30, true, 2, 8333333}, {kSMPTETimeType30, 30, false, 3, 8333333},
    {kSMPTETimeType2997, 30, false, 3, 8341675},  {kSMPTETimeType2997Drop, 30, true, 2, 8341675},
    {kSMPTETimeType2398, 24, false, 0, 10427083},
};

SMPTETime makeTime(std::uint32_t type, int hours, int minutes, int seconds, int frames) {
  SMPTETime time;
  time.mType = type;
  time.mFlags = kSMPTETimeValid;
  time.mHours = static_cast<std::int16_t>(hours);
  time.mMinutes = static_cast<std::int16_t>(minutes);
  time.mSeconds = static_cast<std::int16_t>(seconds);
  time.mFrames = static_cast<std::int16_t>(frames);
  return time;
}

std::string text(int hours, int minutes, int seconds, int frames, unsigned rate) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%02d:%02d:%02d:%02d rate %u", hours, minutes, seconds,
                frames, rate);
  return buffer;
}

// The label two further on, counted as an odometer counts, and put right when
// there is no such label.
std::string twoOn(const Format& format, int hours, int minutes, int seconds, int frames) {
  for (int step = 0; step < 2; ++step) {
    if (++frames == format.labels) {
      frames = 0;
      if (++seconds == 60) {
        seconds = 0;
        if (++minutes == 60) {
          minutes = 0;
          hours = (hours + 1) % 24;
        }
      }
    }
  }
  if (format.drop && frames < 2 && seconds == 0 && minutes % 10 != 0) {
    frames = 2;
  }
  return text(hours, minutes, seconds, frames, format.rateCode);
}

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

  // By the table of the recommendation: piece, field, and the bits of each.
  std::string decoded() const {
    int nibbles[8] = {};
    for (const std::uint8_t byte : secondBytes()) {
      nibbles[byte / 16] = byte % 16;
    }
    return text(nibbles[6] + (nibbles[7] & 1 ? 16 : 0), nibbles[4] + nibbles[5] * 16,
                nibbles[2] + nibbles[3] * 16, nibbles[0] + nibbles[1] * 16,
                static_cast<unsigned>(nibbles[7] / 2));
  }

  midi::MIDIPortRef mPort = 0;
  const KVMIDIEndpoint mSynth{mOutside->appear(midi::MIDIEndpointKind::destination, "synth")};
};

TEST_F(MTC_TxTest, ABlockIsTheTimeTwoFramesLaterInEightPieces) {
  const struct {
    SMPTETime time;
    Bytes pieces;
  } vectors[] = {
      {makeTime(kSMPTETimeType30, 23, 59, 59, 29),
       {0x01, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x76}},
      {makeTime(kSMPTETimeType30Drop, 0, 0, 59, 28),
       {0x02, 0x10, 0x20, 0x30, 0x41, 0x50, 0x60, 0x74}},
      {makeTime(kSMPTETimeType2997, 0, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x76}},
      {makeTime(kSMPTETimeType24, 0, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x60, 0x70}},
      {makeTime(kSMPTETimeType2398, 1, 0, 0, 22), {0x00, 0x10, 0x21, 0x30, 0x40, 0x50, 0x61, 0x70}},
      {makeTime(kSMPTETimeType25, 17, 0, 0, 0), {0x02, 0x10, 0x20, 0x30, 0x40, 0x50, 0x61, 0x73}},
      {makeTime(kSMPTETimeType25, 23, 59, 59, 22),
       {0x08, 0x11, 0x2B, 0x33, 0x4B, 0x53, 0x67, 0x73}},
      {makeTime(kSMPTETimeType2997Drop, 12, 34, 56, 18),
       {0x04, 0x11, 0x28, 0x33, 0x42, 0x52, 0x6C, 0x74}},
  };
  for (const auto& vector : vectors) {
    mOutside->sent.clear();
    const SMPTETime before = vector.time;
    sendTime(mSynth, vector.time, 1, mPort);
    EXPECT_EQ(secondBytes(), vector.pieces);
    EXPECT_TRUE(ltc_identical(before, vector.time));
  }
}

TEST_F(MTC_TxTest, EveryFormatDecodesAllOverTheDay) {
  for (const Format& format : kFormats) {
    // A stride without a common factor with the digits, so that all are met.
    const int labelsOfDay = 24 * 3600 * format.labels;
    std::set<int> frames;
    for (int label = 0; label < labelsOfDay; label += 1013) {
      const int second = label / format.labels;
      const int digits[] = {second / 3600, second / 60 % 60, second % 60, label % format.labels};
      mOutside->sent.clear();
      sendTime(mSynth, makeTime(format.type, digits[0], digits[1], digits[2], digits[3]), 1, mPort);
      ASSERT_EQ(mOutside->sent.size(), 8U);
      ASSERT_EQ(decoded(), twoOn(format, digits[0], digits[1], digits[2], digits[3]));
      frames.insert(digits[3]);
    }
    EXPECT_EQ(frames.size(), static_cast<std::size_t>(format.labels));
  }
}

TEST_F(MTC_TxTest, PiecesAreAQuarterFrameApartAndBlocksJoinWithoutASeam) {
  for (const Format& format : kFormats) {
    const std::uint64_t q = format.quarterFrameInterval;
    EXPECT_EQ(mtc_quarter_frame_interval(format.type), q);
    mOutside->sent.clear();
    const std::uint64_t start = 5'000'000'000'000;
    sendTime(mSynth, makeTime(format.type, 1, 2, 3, 4), start, mPort);
    sendTime(mSynth, makeTime(format.type, 1, 2, 3, 6), start + 8 * q, mPort);
    ASSERT_EQ(mOutside->sent.size(), 16U);
    for (std::size_t i = 0; i < 16; ++i) {
      EXPECT_EQ(mOutside->sent[i].time, start + (8 + i) * q);
      EXPECT_EQ(mOutside->sent[i].endpoint, mSynth.endpoint());
      EXPECT_EQ(mOutside->sent[i].port, mPort);
    }
  }
  for (const std::uint32_t none : {6U, 10U, 12U, ~0U}) {
    EXPECT_EQ(mtc_quarter_frame_interval(none), 0U);
  }
}

TEST_F(MTC_TxTest, SendingTimeAllocatesNothing) {
  midi::MIDIClientRef client = 0;
  midi::MIDIEndpointRef destination = 0;
  int packets = 0;
  mTable.MIDIClientCreate("inside", nullptr, nullptr, &client);
  mTable.MIDIDestinationCreate(
      client, "inside",
      [](const midi::MIDIPacketList*, void* count, void*) { ++*static_cast<int*>(count); },
      &packets, &destination);
  const KVMIDIEndpoint endpoint(destination);
  const SMPTETime time = makeTime(kSMPTETimeType25, 1, 2, 3, 4);
  midi::MIDIPacketList list;
  {
    const host::RealtimeContext realtime;  // an allocation ends the program
    sendTime(endpoint, time, mHost.AudioGetCurrentHostTime(), mPort);
    mtc_full_frame_from_smpte_time(&time, &list);
  }
  mHost.advance(1'000'000'000);
  EXPECT_EQ(packets, 8);
}

TEST_F(MTC_TxTest, AFullFrameCarriesTheTimeAsItIs) {
  const struct {
    SMPTETime time;
    Bytes bytes;
  } vectors[] = {
      {makeTime(kSMPTETimeType25, 1, 2, 3, 4),
       {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x21, 0x02, 0x03, 0x04, 0xF7}},
      {makeTime(kSMPTETimeType24, 23, 59, 59, 23),
       {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x17, 0x3B, 0x3B, 0x17, 0xF7}},
      {makeTime(kSMPTETimeType2398, 0, 0, 0, 0),
       {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0xF7}},
      {makeTime(kSMPTETimeType30Drop, 10, 0, 0, 2),
       {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x4A, 0x00, 0x00, 0x02, 0xF7}},
      {makeTime(kSMPTETimeType2997, 1, 0, 0, 0),
       {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x61, 0x00, 0x00, 0x00, 0xF7}},
      {makeTime(7, 1, 0, 0, 0), {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x21, 0x00, 0x00, 0x00, 0xF7}},
      {makeTime(40, 1, 0, 0, 0), {0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x21, 0x00, 0x00, 0x00, 0xF7}},
  };
  midi::MIDIPacketList list;
  for (const auto& vector : vectors) {
    EXPECT_EQ(mtc_full_frame_from_smpte_time(&vector.time, &list), 0);
    ASSERT_EQ(list.numPackets, 1U);
    const midi::MIDITimeStamp time = list.packet[0].timeStamp;
    EXPECT_EQ(time, 0U);
    EXPECT_EQ(Bytes(list.packet[0].data, list.packet[0].data + list.packet[0].length),
              vector.bytes);
  }
  midi::MIDIPacketListInit(&list);
  SMPTETime invalid = makeTime(kSMPTETimeType25, 1, 2, 3, 4);
  invalid.mFlags = kSMPTETimeRunning;
  EXPECT_EQ(mtc_full_frame_from_smpte_time(&invalid, &list), 0);
  EXPECT_EQ(list.numPackets, 0U);
  EXPECT_EQ(mtc_full_frame_from_smpte_time(nullptr, &list), -50);
  EXPECT_EQ(mtc_full_frame_from_smpte_time(&invalid, nullptr), -50);
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
