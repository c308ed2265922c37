// SPDX-License-Identifier: MIT
#include "platform/midi/MIDITypes.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace velor::midi {
namespace {

TEST(MIDIPacketList, HoldsPacketsOfAnyLengthAndRefusesWhatDoesNotFit) {
  alignas(MIDIPacketList) std::array<std::uint8_t, 64> room{};
  auto* list = reinterpret_cast<MIDIPacketList*>(room.data());
  const std::array<std::uint8_t, 24> bytes{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

  MIDIPacket* packet = MIDIPacketListInit(list);
  for (const std::size_t length : {3U, 10U}) {
    packet = MIDIPacketListAdd(list, room.size(), packet, length, length, bytes.data());
    ASSERT_NE(packet, nullptr);
  }
  // 4 bytes of head, then 10 + 3 and 10 + 10 brought up to multiples of 4: 40 in all.
  EXPECT_EQ(MIDIPacketListAdd(list, room.size(), packet, 9, 15, bytes.data()), nullptr);
  ASSERT_NE(MIDIPacketListAdd(list, room.size(), packet, 14, 14, bytes.data()), nullptr);
  std::size_t sum = 0;
  forEachPacket(*list, [&](const MIDIPacket& each) {
    EXPECT_EQ(std::memcmp(each.data, bytes.data(), each.length), 0);
    EXPECT_EQ(MIDITimeStamp{each.timeStamp}, each.length);  // a copy: the record is packed
    sum += each.length;
  });
  EXPECT_EQ(sum, 3U + 10U + 14U);
  EXPECT_EQ(MIDIPacketListAdd(list, 1 << 20, packet, 9, kMaxPacketBytes + 1, bytes.data()),
            nullptr);
}

}  // namespace
}  // namespace velor::midi
