// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "sim/SimulatedHost.h"
#include "tests/support/FakeOutside.h"
#include "tests/velor/mtc/MTCPackets.h"

namespace velor {

/// Blocks at 25 frames per second from 01:00:SS:00 on come from a source. Gives the host
/// time of the first piece of the last one.
inline std::uint64_t playBlocks(host::SimulatedHost& host, midi::FakeOutside& outside,
                                midi::MIDIEndpointRef source, int blocks, unsigned seconds,
                                unsigned rate) {
  std::uint64_t begin = 0;
  for (int block = 0; block < blocks; ++block) {
    begin = host.AudioGetCurrentHostTime();
    for (const std::uint8_t byte :
         quarterFrames(1, 0, seconds, static_cast<unsigned>(block) * 2, rate)) {
      outside.play(source, host.AudioGetCurrentHostTime(), {0xF1, byte});
      host.advance(10'000'000);
    }
  }
  return begin;
}

/// One block, or one locate, that went out.
struct OnWire {
  bool isLocate;
  std::uint64_t time;  ///< host time of the first packet; 0 is at once
  std::string digits;  ///< "hh:mm:ss:ff"
  unsigned rateCode;
  bool operator==(const OnWire&) const = default;
};

/// Everything that has gone from or to the endpoint since the last call, read by the
/// tables of the MTC standard.
inline std::vector<OnWire> takeSentMTC(midi::FakeOutside& outside, midi::MIDIEndpointRef endpoint) {
  std::vector<OnWire> result;
  unsigned fields[4] = {};  // frames, seconds, minutes, hours and rate
  unsigned expectedPiece = 0;
  const auto finish = [&] {
    char text[64];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u:%02u", fields[3] & 0x1F, fields[2], fields[1],
                  fields[0]);
    result.back().digits = text;
    result.back().rateCode = fields[3] >> 5;
  };
  std::erase_if(outside.sent, [&](const midi::FakeOutside::Sent& sent) {
    if (sent.endpoint != endpoint) {
      return false;
    }
    const auto& bytes = sent.bytes;
    if (bytes.size() == 2 && bytes[0] == 0xF1) {
      const unsigned piece = bytes[1] >> 4;
      const unsigned nibble = bytes[1] & 0xFU;
      EXPECT_EQ(piece, expectedPiece);
      expectedPiece = (piece + 1) % 8;
      if (piece == 0) {
        result.push_back({false, sent.time, {}, 0});
      }
      fields[piece / 2] = piece % 2 == 0 ? nibble : fields[piece / 2] | nibble << 4;
      if (piece == 7) {
        finish();
      }
    } else if (bytes.size() == 10 && bytes[0] == 0xF0 && bytes[3] == 0x01 && bytes[4] == 0x01) {
      result.push_back({true, sent.time, {}, 0});
      std::copy_n(bytes.rbegin() + 1, 4, fields);
      finish();
    }
    return true;
  });
  return result;
}

}  // namespace velor
