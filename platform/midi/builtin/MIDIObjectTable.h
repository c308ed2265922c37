// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/PriorityMutex.h"
#include "platform/host/WeakSelf.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/MIDIService.h"
#include "platform/midi/builtin/MIDIObjects.h"
#include "platform/midi/builtin/MIDIReadThread.h"

namespace velor::midi {

/// The MIDI service of the process: its objects, its connections and the read thread.
/// Traffic between virtual endpoints of this process never leaves it and keeps
/// its exact times. What lies outside is the back end's, a MIDIOutside; without
/// one, this is the in-process service.
class MIDIObjectTable final : public MIDIService, private MIDIInside {
 public:
  /// `outside` may be null.
  explicit MIDIObjectTable(std::unique_ptr<MIDIOutside> outside);
  ~MIDIObjectTable() override;

  OSStatus MIDIClientCreate(const std::string& name, MIDINotifyProc notifyProc, void* refCon,
                            MIDIClientRef* client) override;
  OSStatus MIDIClientDispose(MIDIClientRef client) override;
  OSStatus MIDIOutputPortCreate(MIDIClientRef client, const std::string& name,
                                MIDIPortRef* port) override;
  OSStatus MIDIInputPortCreate(MIDIClientRef client, const std::string& name, MIDIReadProc readProc,
                               void* refCon, MIDIPortRef* port) override;
  OSStatus MIDIPortDispose(MIDIPortRef port) override;
  OSStatus MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source,
                                 void* sourceRefCon) override;
  OSStatus MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) override;
  OSStatus MIDISourceCreate(MIDIClientRef client, const std::string& name,
                            MIDIEndpointRef* source) override;
  OSStatus MIDIDestinationCreate(MIDIClientRef client, const std::string& name,
                                 MIDIReadProc readProc, void* refCon,
                                 MIDIEndpointRef* destination) override;
  OSStatus MIDIEndpointDispose(MIDIEndpointRef endpoint) override;
  std::size_t MIDIGetNumberOfSources() override;
  MIDIEndpointRef MIDIGetSource(std::size_t index) override;
  std::size_t MIDIGetNumberOfDestinations() override;
  MIDIEndpointRef MIDIGetDestination(std::size_t index) override;
  OSStatus MIDIObjectFindByUniqueID(MIDIUniqueID id, MIDIObjectRef* object) override;
  OSStatus MIDIObjectGetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                        std::int32_t* value) override;
  OSStatus MIDIObjectSetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                        std::int32_t value) override;
  OSStatus MIDIObjectGetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                       std::string* value) override;
  OSStatus MIDIObjectSetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                       const std::string& value) override;
  OSStatus MIDISend(MIDIPortRef port, MIDIEndpointRef destination,
                    const MIDIPacketList* packets) override;
  void endSending(MIDIPortRef port, MIDIEndpointRef destination) override;
  OSStatus MIDIReceived(MIDIEndpointRef source, const MIDIPacketList* packets) override;
  void waitUntilSettled() override;
  void whenSettled(host::Queue& queue, host::Task task) override;
  bool isConnected() override;
  std::string serverDescription() override;

 private:
  using Type = MIDIObjects::Type;
  using Object = MIDIObjects::Object;

  struct Connection {
    MIDIPortRef port;
    MIDIEndpointRef source;
    void* sourceRefCon;
  };

  MIDIEndpointRef endpointAppeared(MIDIEndpointKind kind, const std::string& portName,
                                   const std::string& displayName) override;
  void endpointVanished(MIDIEndpointRef endpoint) override;
  bool deliver(const host::RealtimeContext& realtime, ReceiverRef receiver, void* sourceRefCon,
               MIDITimeStamp time, const std::uint8_t* data, std::size_t length) noexcept override;

  MIDIEndpointRef presentAt(Type type, std::size_t index);

  // Both under mMutex.
  OSStatus createPort(MIDIClientRef client, Type type, const std::string& name, MIDIPortRef* port);
  // Clients get one report of all that happens until the main queue runs it.
  void notify(MIDINotificationMessageID message);

  // On the main queue; these take the lock, and call without it.
  void tellNews();
  void tell(MIDIClientRef client, MIDINotificationMessageID message);

  // Takes an object with a receiver out, in two steps around the wait for quiet.
  OSStatus dispose(MIDIObjectRef ref, bool isEndpoint);

  host::PriorityMutex mMutex;
  // All under mMutex.
  struct News {
    bool isPosted = false;
    bool added = false;
    bool removed = false;
  };
  News mNews;
  MIDIObjects mObjects;
  std::vector<Connection> mConnections;
  MIDIReadThread mReadThread;
  const std::unique_ptr<MIDIOutside> mOutside;
  const host::WeakSelf<MIDIObjectTable> mSelf;
};

}  // namespace velor::midi
