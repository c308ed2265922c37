// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velor::midi {

/// 0, or one of the negative codes below.
using OSStatus = std::int32_t;

/// Objects of a service; 0 is none.
using MIDIObjectRef = std::uint32_t;
using MIDIClientRef = MIDIObjectRef;
using MIDIPortRef = MIDIObjectRef;
using MIDIEndpointRef = MIDIObjectRef;

/// Host time, ns. 0 means at once in a packet that is sent.
using MIDITimeStamp = std::uint64_t;

using MIDIUniqueID = std::int32_t;

inline constexpr OSStatus kMIDIInvalidClient = -10830;
inline constexpr OSStatus kMIDIInvalidPort = -10831;
inline constexpr OSStatus kMIDINoConnection = -10833;
inline constexpr OSStatus kMIDIUnknownEndpoint = -10834;
inline constexpr OSStatus kMIDIUnknownProperty = -10835;
inline constexpr OSStatus kMIDIWrongPropertyType = -10836;
inline constexpr OSStatus kMIDIMessageSendErr = -10838;
inline constexpr OSStatus kMIDIObjectNotFound = -10842;
inline constexpr OSStatus kMIDIIDNotUnique = -10843;

using MIDIProperty = std::string_view;
inline constexpr MIDIProperty kMIDIPropertyName = "name";                   // string
inline constexpr MIDIProperty kMIDIPropertyDisplayName = "displayName";     // string
inline constexpr MIDIProperty kMIDIPropertyModel = "model";                 // string
inline constexpr MIDIProperty kMIDIPropertyUniqueID = "uniqueID";           // integer, not 0
inline constexpr MIDIProperty kMIDIPropertyDeviceID = "deviceID";           // integer
inline constexpr MIDIProperty kMIDIPropertyReceivesMTC = "receives MTC";    // integer, 0 or 1
inline constexpr MIDIProperty kMIDIPropertyTransmitsMTC = "transmits MTC";  // integer, 0 or 1
/// The name by which the server knows the port; virtual endpoints have none.
inline constexpr MIDIProperty kMIDIPropertyServerPort = "serverPort";  // string

enum class MIDIEndpointKind : std::uint8_t { source, destination };

enum MIDINotificationMessageID : std::int32_t {
  kMIDIMsgSetupChanged = 1,
  kMIDIMsgObjectAdded = 2,
  kMIDIMsgObjectRemoved = 3,
};

struct MIDINotification {
  MIDINotificationMessageID messageID;
};

/// The most bytes that a service takes in one packet. Timecode needs 19.
inline constexpr std::size_t kMaxPacketBytes = 256;

#pragma pack(push, 4)
/// One packet; `data` holds `length` bytes, however many are declared here.
struct MIDIPacket {
  MIDITimeStamp timeStamp;
  std::uint16_t length;
  std::uint8_t data[kMaxPacketBytes];
};
/// Packets one after the other, each at a multiple of 4 bytes; walk them with
/// MIDIPacketNext.
struct MIDIPacketList {
  std::uint32_t numPackets;
  MIDIPacket packet[1];
};
#pragma pack(pop)

/// Empties the list; gives the place for its first packet.
MIDIPacket* MIDIPacketListInit(MIDIPacketList* list) noexcept;

/// Appends one packet after `current` (from MIDIPacketListInit or the last call) and gives
/// it. Null, with the list unchanged, when the list would need more than `listSize` bytes.
/// Copies `length` bytes.
MIDIPacket* MIDIPacketListAdd(MIDIPacketList* list, std::size_t listSize, MIDIPacket* current,
                              MIDITimeStamp time, std::size_t length,
                              const std::uint8_t* data) noexcept;

/// The packet after this one.
const MIDIPacket* MIDIPacketNext(const MIDIPacket* packet) noexcept;

/// Calls `take` with each packet of the list, in order.
template <class F>
void forEachPacket(const MIDIPacketList& packets, const F& take) {
  const MIDIPacket* packet = &packets.packet[0];
  for (std::uint32_t i = 0; i < packets.numPackets; ++i) {
    take(*packet);
    packet = MIDIPacketNext(packet);
  }
}

/// Takes packets in, on the MIDI read thread. `sourceRefCon` is what
/// MIDIPortConnectSource was given; null for a virtual destination.
using MIDIReadProc = void (*)(const MIDIPacketList* packets, void* readProcRefCon,
                              void* sourceRefCon);

/// Takes a change of the setup in, on the main queue.
using MIDINotifyProc = void (*)(const MIDINotification* notification, void* refCon);

}  // namespace velor::midi
