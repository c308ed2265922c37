// SPDX-License-Identifier: MIT
#include "platform/midi/MIDITypes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

namespace velor::midi {
namespace {

TEST(MIDIPacketList, HoldsPacketsOfAnyLengthAndRefusesWhatDoesNotFit) {
  alignas(MIDIPacketList) std::array<std::uint8_t, 64> room{};
  auto* list = reinterpret_cast<MIDIPacketList*>(room.data());
  const std::array<std::uint8_t, 24> bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

  MIDIPacket* packet = MIDIPacketListInit(list);
  packet = MIDIPacketListAdd(list, room.size(), packet, 7, 3, bytes.data());
  ASSERT_NE(packet, nullptr);
  packet = MIDIPacketListAdd(list, room.size(), packet, 8, 10, bytes.data());
  ASSERT_NE(packet, nullptr);
  // 4 bytes of head, then 10 + 3 and 10 + 10 brought up to multiples of 4: 40 in all.
  EXPECT_EQ(MIDIPacketListAdd(list, room.size(), packet, 9, 15, bytes.data()), nullptr);
  EXPECT_EQ(list->numPackets, 2U);
  ASSERT_NE(MIDIPacketListAdd(list, room.size(), packet, 9, 14, bytes.data()), nullptr);

  std::vector<std::pair<MIDITimeStamp, std::size_t>> seen;
  forEachPacket(*list, [&](const MIDIPacket& each) {
    EXPECT_EQ(std::memcmp(each.data, bytes.data(), each.length), 0);
    const MIDITimeStamp time = each.timeStamp;  // a copy: the record is packed
    seen.emplace_back(time, each.length);
  });
  EXPECT_EQ(seen, (std::vector<std::pair<MIDITimeStamp, std::size_t>>{{7, 3}, {8, 10}, {9, 14}}));
  EXPECT_EQ(MIDIPacketListAdd(list, 1 << 20, packet, 9, kMaxPacketBytes + 1, bytes.data()),
            nullptr);
}

}  // namespace
}  // namespace velor::midi
