// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// Packets of two bytes, 0xF1 and a number that goes up by 1 from `number`, `spacing` ns
/// apart. A first time of 0 means "at once", for all of them.
class PacketList {
 public:
  explicit PacketList(MIDITimeStamp first, std::uint8_t number = 0, MIDITimeStamp spacing = 0,
                      int count = 1) {
    auto* list = reinterpret_cast<MIDIPacketList*>(mBytes);
    MIDIPacket* packet = MIDIPacketListInit(list);
    for (int i = 0; i < count; ++i) {
      const std::uint8_t bytes[] = {0xF1, number++};
      packet = MIDIPacketListAdd(list, sizeof mBytes, packet, first, sizeof bytes, bytes);
      first += first == 0 ? 0 : spacing;
    }
  }
  const MIDIPacketList* get() const { return reinterpret_cast<const MIDIPacketList*>(mBytes); }

 private:
  alignas(MIDIPacketList) std::uint8_t mBytes[4096];
};

}  // namespace velor::midi
