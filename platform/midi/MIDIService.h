// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/host/Queue.h"
#include "platform/host/Task.h"
#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// A MIDI service: clients, ports, virtual endpoints, the endpoints of other programs and
/// of hardware (the outside), and delivery of packets at their time.
///
/// Any thread may call any operation, but none from a real-time callback. All
/// read functions run on one real-time thread, the MIDI read thread, in the
/// order of the packets' times; all notify functions run on the main queue.
///
/// A port or endpoint that is disposed of is quiet from then on: its read
/// function is not running any more when the call returns. For that the call
/// waits for the read thread, so it must not come from a read function, nor from
/// a queue that a read function waits for.
class MIDIService {
 public:
  MIDIService() = default;
  virtual ~MIDIService() = default;
  MIDIService(const MIDIService&) = delete;
  MIDIService& operator=(const MIDIService&) = delete;

  virtual OSStatus MIDIClientCreate(const std::string& name, MIDINotifyProc notifyProc,
                                    void* refCon, MIDIClientRef* client) = 0;
  /// Disposes of the client's ports and virtual endpoints, too. On the main
  /// thread, its notify function is not called any more once this returns.
  virtual OSStatus MIDIClientDispose(MIDIClientRef client) = 0;
  virtual OSStatus MIDIOutputPortCreate(MIDIClientRef client, const std::string& name,
                                        MIDIPortRef* port) = 0;
  virtual OSStatus MIDIInputPortCreate(MIDIClientRef client, const std::string& name,
                                       MIDIReadProc readProc, void* refCon, MIDIPortRef* port) = 0;
  virtual OSStatus MIDIPortDispose(MIDIPortRef port) = 0;

  /// From now on the port's read function gets the packets of the source. A
  /// source of the outside that goes and comes back is connected again.
  virtual OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source,
                                         void* sourceRefCon) = 0;
  virtual OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) = 0;

  virtual OSStatus MIDISourceCreate(MIDIClientRef client, const std::string& name,
                                    MIDIEndpointRef* source) = 0;
  virtual OSStatus MIDIDestinationCreate(MIDIClientRef client, const std::string& name,
                                         MIDIReadProc readProc, void* refCon,
                                         MIDIEndpointRef* destination) = 0;
  /// For virtual endpoints; others give kMIDIUnknownEndpoint.
  virtual OSStatus MIDIEndpointDispose(MIDIEndpointRef endpoint) = 0;

  /// The endpoints that exist now, virtual ones and those of the outside. An
  /// index past the end gives 0.
  virtual std::size_t MIDIGetNumberOfSources() = 0;
  virtual MIDIEndpointRef MIDIGetSource(std::size_t index) = 0;
  virtual std::size_t MIDIGetNumberOfDestinations() = 0;
  virtual MIDIEndpointRef MIDIGetDestination(std::size_t index) = 0;

  /// kMIDIObjectNotFound for an id that no present endpoint has. An endpoint of
  /// the outside keeps its id and its reference over its absence.
  virtual OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID id, MIDIObjectRef* object) = 0;

  /// kMIDIUnknownProperty where the object has no such property,
  /// kMIDIWrongPropertyType where it has another type, kMIDIObjectNotFound where
  /// there is no such object. Ids must be unique and not 0: kMIDIIDNotUnique.
  virtual OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                std::int32_t* value) = 0;
  virtual OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                std::int32_t value) = 0;
  virtual OSStatus MIDIObjectGetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                               std::string* value) = 0;
  virtual OSStatus MIDIObjectSetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                               const std::string& value) = 0;

  /// Schedules the packets of the list on the destination, each at its time;
  /// those whose time is past or 0 go at once. The spacing of the packets of one
  /// list is kept exactly. kMIDIUnknownEndpoint when the destination is not
  /// there, kMIDIMessageSendErr when no room is left for its packets. The first list
  /// that is sent from a port to a destination of the outside, even an empty one, opens
  /// a connection for the pair; see `whenSettled`.
  virtual OSStatus MIDISend(MIDIPortRef port, MIDIEndpointRef destination,
                            const MIDIPacketList* packets) = 0;

  /// Nothing more is to be sent from the port to the destination for the time being: a
  /// connection that serves the pair is closed after the last packet. The next MIDISend
  /// opens it again. A destination that is not there keeps it for its return.
  virtual void endSending(MIDIPortRef port, MIDIEndpointRef destination) = 0;

  /// Sends from a virtual source to all that are connected to it.
  virtual OSStatus MIDIReceived(MIDIEndpointRef source, const MIDIPacketList* packets) = 0;

  /// Waits until the connections to the outside that were asked for so far, by sending or
  /// connecting, are open, or cannot be opened; that takes some cycles of the server,
  /// however many they are.
  virtual void waitUntilSettled() = 0;

  /// Posts the task to the queue when those connections are open, without waiting. The
  /// queue must last until then; a later `waitUntilSettled` makes sure of that.
  virtual void whenSettled(host::Queue& queue, host::Task task) = 0;

  /// Whether a server carries the MIDI of the outside now.
  virtual bool isConnected() = 0;
  /// The server that carries the MIDI of the outside now, in a few words for people.
  virtual std::string serverDescription() = 0;
};

/// The current service; the application chooses it once, a test for each case.
MIDIService& service() noexcept;
void setService(MIDIService* service) noexcept;

}  // namespace velor::midi
