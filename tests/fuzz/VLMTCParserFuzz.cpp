// SPDX-License-Identifier: MIT
// Any packets, with any times and pauses, into the MTC parser. What it reports
// must be what the last packets say.
//
// The input is a row of steps, each begun by one byte:
//   0xxxxxxx  a packet of x mod 64 bytes, which follow. From 0x40 on, its time
//             follows first, in 8 bytes; else it has none
//   1xxxxxxx  x times 8 ms of silence
#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "Velor/mtc/VLMTCParser.h"
#include "sim/SimulatedHost.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/velor/mtc/MTCPackets.h"

namespace {

using velor::ExactPacket;
using velor::SMPTETime;
using velor::VLMTCParser;

velor::host::SimulatedHost& host() {
  static auto* host = new velor::host::SimulatedHost;
  return *host;
}

// What has gone in, and whether what comes out follows from it.
class Witness final : public velor::VLMTCParserDelegate {
 public:
  void willAdd(const velor::midi::MIDIPacket& packet) {
    mPacket.assign(packet.data, packet.data + packet.length);
    if (packet.length == 2 && packet.data[0] == 0xF1) {
      const std::uint64_t time =
          packet.timeStamp != 0 ? packet.timeStamp : host().AudioGetCurrentHostTime();
      mQuarterFrames.push_back({packet.data[1], time});
      if (mQuarterFrames.size() > 8) {
        mQuarterFrames.pop_front();
      }
    }
  }

  void blockCompleted(const SMPTETime& time, std::uint64_t timestamp, double deviation) {
    require(mQuarterFrames.size() == 8, "a block has eight pieces");
    unsigned nibbles[8];
    for (unsigned i = 0; i < 8; ++i) {
      require(mQuarterFrames[i].byte / 16U == i, "a block's pieces are in order");
      nibbles[i] = mQuarterFrames[i].byte % 16U;
    }
    require(unsigned(time.mFrames) == nibbles[0] + 16 * nibbles[1], "frames");
    require(unsigned(time.mSeconds) == nibbles[2] + 16 * nibbles[3], "seconds");
    require(unsigned(time.mMinutes) == nibbles[4] + 16 * nibbles[5], "minutes");
    require(unsigned(time.mHours) == nibbles[6] + 16 * (nibbles[7] % 2), "hours");
    const std::uint32_t types[] = {0, 1, 5, 3};
    if (nibbles[7] < 8) {
      require(time.mType == types[nibbles[7] / 2], "format by rate code");
    }
    require(time.mType <= 5 && time.mType != 2 && time.mType != 4, "format is one of four");
    require(time.mFlags == 3 && time.mSubframes == 0, "valid and running");
    require(time.mCounter == mLastCounter + 3, "blocks are counted by threes");
    require(timestamp == mQuarterFrames[0].time, "time of the first piece");
    require(std::abs(deviation) < 0.05, "deviation is bounded");
    mLastCounter = time.mCounter;
  }

  void parserDidStopReading(VLMTCParser&) override {
    require(host().mainQueue().isCurrent(), "the end is told on the main queue");
    require(mQuarterFrames.size() == 8, "only what began can end");
    mLastCounter = 0;
  }
  void parserDidReceiveFFMsg(VLMTCParser&, const SMPTETime& time) override {
    require(mPacket.size() == 10 && mPacket[0] == 0xF0 && mPacket[9] == 0xF7, "full frame");
    require(time.mHours == (mPacket[5] & 0x1F) && time.mMinutes == mPacket[6] &&
                time.mSeconds == mPacket[7] && time.mFrames == mPacket[8],
            "full frame as received");
    require(time.mMinutes < 60 && time.mSeconds < 60 && time.mFlags == 1, "full frame in range");
  }
  void parserDidReceiveLoopToken(VLMTCParser&, std::uint32_t token) override {
    require(mPacket.size() == 19 && mPacket[18] == 0xF7, "token message");
    require((token >> 24) == mPacket[14] && (token & 0xFF) == mPacket[17], "token as received");
  }

 private:
  struct QuarterFrame {
    std::uint8_t byte;
    std::uint64_t time;
  };
  std::vector<std::uint8_t> mPacket;
  std::deque<QuarterFrame> mQuarterFrames;
  std::uint32_t mLastCounter = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host();
  const auto witness = std::make_shared<Witness>();
  auto parser = VLMTCParser::initWithCompletionBlock(
      [&witness](const SMPTETime& time, std::uint64_t timestamp, double deviation) {
        witness->blockCompleted(time, timestamp, deviation);
      });
  parser->setDelegate(witness);
  const std::uint8_t* const end = data + size;
  while (data != end) {
    const unsigned step = *data++;
    if (step >= 0x80) {
      host().advance((step - 0x80) * 8'000'000ULL);
      continue;
    }
    std::uint64_t time = 0;
    if (step >= 0x40 && end - data >= 8) {
      std::memcpy(&time, data, sizeof time);
      data += sizeof time;
    }
    const std::size_t length =
        std::min<std::size_t>(step % 0x40, static_cast<std::size_t>(end - data));
    const ExactPacket packet(time, data, length);
    data += length;
    witness->willAdd(*packet.get());
    parser->addPacket(packet.get());
  }
  const std::weak_ptr<VLMTCParser> weak = parser;
  parser.reset();
  host().advance(1'000'000'000);
  require(weak.expired(), "a parser without owner and stream goes");
  return 0;
}
