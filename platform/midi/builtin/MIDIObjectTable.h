// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/host/PriorityMutex.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/MIDIService.h"
#include "platform/midi/builtin/MIDIReadThread.h"

namespace velor::midi {

/// The object table of the process: clients, ports, virtual endpoints, the
/// endpoints of the outside, their properties and ids, and the read thread.
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

  /// The id of an endpoint of the outside by the name of its port: the same in
  /// every run, and never 0.
  static MIDIUniqueID uniqueIDOfPort(const std::string& portName) noexcept;

 private:
  enum class Type : std::uint8_t { client, outputPort, inputPort, source, destination };

  struct Object {
    Type type;
    std::string name;
    MIDIClientRef client = 0;  // the owner of ports and virtual endpoints
    bool outside = false;
    bool present = true;                  // of the outside: is there now
    std::optional<ReceiverRef> receiver;  // input ports and virtual destinations
    MIDINotifyProc notifyProc = nullptr;  // clients
    void* notifyRefCon = nullptr;         // clients
    std::map<std::string, std::variant<std::int32_t, std::string>, std::less<>> properties;
  };
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

  template <class Value>
  OSStatus getProperty(MIDIObjectRef object, MIDIProperty property, Value* value);
  template <class Value>
  OSStatus setProperty(MIDIObjectRef object, MIDIProperty property, const Value& value);

  // All below under mMutex.
  Object* find(MIDIObjectRef ref, Type type);
  MIDIObjectRef add(Type type, const std::string& name);
  OSStatus createPort(MIDIClientRef client, Type type, const std::string& name, MIDIPortRef* port);
  MIDIEndpointRef addEndpoint(Type type, const std::string& name, MIDIUniqueID wantedId);
  bool idIsFree(MIDIUniqueID id, MIDIObjectRef except) const;
  std::size_t count(Type type) const;
  MIDIEndpointRef at(Type type, std::size_t index) const;
  void notify(MIDINotificationMessageID message);

  // Takes the lock, and calls without it.
  void tell(MIDIClientRef client, MIDINotificationMessageID message);

  // Takes an object with a receiver out, in two steps around the wait for quiet.
  OSStatus dispose(MIDIObjectRef ref, bool isEndpoint);

  host::PriorityMutex mMutex;
  MIDIObjectRef mNextRef = 1;
  // By reference, which is the order of creation, too.
  std::map<MIDIObjectRef, Object> mObjects;
  std::vector<Connection> mConnections;
  MIDIReadThread mReadThread;
  const std::unique_ptr<MIDIOutside> mOutside;
  // Jobs on the main queue hold it weakly: they may come after the table's end.
  std::shared_ptr<MIDIObjectTable*> mSelf;
};

}  // namespace velor::midi
