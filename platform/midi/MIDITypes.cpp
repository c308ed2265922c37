// SPDX-License-Identifier: MIT
#include "platform/midi/MIDITypes.h"

#include <cstring>

namespace velor::midi {
namespace {

constexpr std::size_t kPacketAlignment = 4;

constexpr std::size_t packetBytes(std::size_t length) noexcept {
  const std::size_t bytes = offsetof(MIDIPacket, data) + length;
  return (bytes + kPacketAlignment - 1) / kPacketAlignment * kPacketAlignment;
}

}  // namespace

MIDIPacket* MIDIPacketListInit(MIDIPacketList* list) noexcept {
  list->numPackets = 0;
  return &list->packet[0];
}

MIDIPacket* MIDIPacketListAdd(MIDIPacketList* list, std::size_t listSize, MIDIPacket* current,
                              MIDITimeStamp time, std::size_t length,
                              const std::uint8_t* data) noexcept {
  if (list == nullptr || current == nullptr || data == nullptr || length > kMaxPacketBytes) {
    return nullptr;
  }
  auto* begin = reinterpret_cast<std::uint8_t*>(list);
  auto* place = reinterpret_cast<std::uint8_t*>(current);
  if (list->numPackets > 0) {
    place += packetBytes(current->length);
  }
  if (static_cast<std::size_t>(place - begin) + packetBytes(length) > listSize) {
    return nullptr;
  }
  auto* packet = reinterpret_cast<MIDIPacket*>(place);
  packet->timeStamp = time;
  packet->length = static_cast<std::uint16_t>(length);
  std::memcpy(place + offsetof(MIDIPacket, data), data, length);
  ++list->numPackets;
  return packet;
}

const MIDIPacket* MIDIPacketNext(const MIDIPacket* packet) noexcept {
  const auto* place = reinterpret_cast<const std::uint8_t*>(packet);
  return reinterpret_cast<const MIDIPacket*>(place + packetBytes(packet->length));
}

}  // namespace velor::midi
