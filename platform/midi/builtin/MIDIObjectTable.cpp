// SPDX-License-Identifier: MIT
#include "platform/midi/builtin/MIDIObjectTable.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace velor::midi {

MIDIObjectTable::MIDIObjectTable(std::unique_ptr<MIDIOutside> outside)
    : mOutside(std::move(outside)), mSelf(std::make_shared<MIDIObjectTable*>(this)) {
  if (mOutside != nullptr) {
    mOutside->start(*this);
  }
}

MIDIObjectTable::~MIDIObjectTable() {
  if (mOutside != nullptr) {
    mOutside->stop();
  }
}

// --- objects ---

MIDIObjectTable::Object* MIDIObjectTable::find(MIDIObjectRef ref, Type type) {
  const auto it = mObjects.find(ref);
  return it != mObjects.end() && it->second.type == type ? &it->second : nullptr;
}

MIDIObjectRef MIDIObjectTable::add(Type type, const std::string& name) {
  const MIDIObjectRef ref = mNextRef++;
  Object& object = mObjects[ref];
  object.type = type;
  object.name = name;
  object.properties[std::string(kMIDIPropertyName)] = name;
  return ref;
}

bool MIDIObjectTable::idIsFree(MIDIUniqueID id, MIDIObjectRef except) const {
  return std::none_of(mObjects.begin(), mObjects.end(), [id, except](const auto& entry) {
    const auto it = entry.second.properties.find(kMIDIPropertyUniqueID);
    return entry.first != except && it != entry.second.properties.end() &&
           std::get<std::int32_t>(it->second) == id;
  });
}

MIDIUniqueID MIDIObjectTable::uniqueIDOfPort(const std::string& portName) noexcept {
  // FNV-1a, 32 bits.
  std::uint32_t hash = 2166136261U;
  for (const char c : portName) {
    hash = (hash ^ static_cast<std::uint8_t>(c)) * 16777619U;
  }
  return hash == 0 ? 1 : static_cast<MIDIUniqueID>(hash);
}

MIDIEndpointRef MIDIObjectTable::addEndpoint(Type type, const std::string& name,
                                             MIDIUniqueID wantedId) {
  const MIDIEndpointRef ref = add(type, name);
  MIDIUniqueID id = wantedId;
  while (id == 0 || !idIsFree(id, ref)) {
    id = static_cast<MIDIUniqueID>(static_cast<std::uint32_t>(id) + 1);
  }
  auto& properties = mObjects[ref].properties;
  properties[std::string(kMIDIPropertyUniqueID)] = id;
  properties[std::string(kMIDIPropertyDisplayName)] = name;
  properties[std::string(kMIDIPropertyReceivesMTC)] = 0;
  properties[std::string(kMIDIPropertyTransmitsMTC)] = 0;
  return ref;
}

std::size_t MIDIObjectTable::count(Type type) const {
  return static_cast<std::size_t>(std::count_if(
      mObjects.begin(), mObjects.end(),
      [type](const auto& entry) { return entry.second.type == type && entry.second.present; }));
}

MIDIEndpointRef MIDIObjectTable::at(Type type, std::size_t index) const {
  for (const auto& [ref, object] : mObjects) {
    if (object.type == type && object.present && index-- == 0) {
      return ref;
    }
  }
  return 0;
}

void MIDIObjectTable::notify(MIDINotificationMessageID message) {
  host::current().mainQueue().async([weak = std::weak_ptr(mSelf), message] {
    const auto self = weak.lock();
    if (self == nullptr) {
      return;
    }
    MIDIObjectTable& table = **self;
    std::vector<MIDIClientRef> clients;
    {
      const std::lock_guard lock(table.mMutex);
      for (const auto& [ref, object] : table.mObjects) {
        if (object.type == Type::client && object.notifyProc != nullptr) {
          clients.push_back(ref);
        }
      }
    }
    for (const MIDIClientRef client : clients) {
      // What happened, then that something did; clients may look at either.
      if (message != kMIDIMsgSetupChanged) {
        table.tell(client, message);
      }
      table.tell(client, kMIDIMsgSetupChanged);
    }
  });
}

void MIDIObjectTable::tell(MIDIClientRef client, MIDINotificationMessageID message) {
  MIDINotifyProc notifyProc = nullptr;
  void* refCon = nullptr;
  {
    const std::lock_guard lock(mMutex);
    // A notify function may have disposed of a client whose turn is to come.
    const Object* object = find(client, Type::client);
    if (object == nullptr) {
      return;
    }
    notifyProc = object->notifyProc;
    refCon = object->notifyRefCon;
  }
  const MIDINotification notification{message};
  notifyProc(&notification, refCon);
}

OSStatus MIDIObjectTable::MIDIClientCreate(const std::string& name, MIDINotifyProc notifyProc,
                                           void* refCon, MIDIClientRef* client) {
  const std::lock_guard lock(mMutex);
  *client = add(Type::client, name);
  Object& object = mObjects[*client];
  object.notifyProc = notifyProc;
  object.notifyRefCon = refCon;
  return 0;
}

OSStatus MIDIObjectTable::MIDIClientDispose(MIDIClientRef client) {
  std::vector<MIDIPortRef> ports;
  std::vector<MIDIEndpointRef> endpoints;
  {
    const std::lock_guard lock(mMutex);
    if (find(client, Type::client) == nullptr) {
      return kMIDIInvalidClient;
    }
    for (const auto& [ref, object] : mObjects) {
      if (object.client == client) {
        const bool isEndpoint = object.type == Type::source || object.type == Type::destination;
        (isEndpoint ? endpoints : ports).push_back(ref);
      }
    }
    mObjects.erase(client);  // from here on nothing can be made for it
  }
  for (const MIDIPortRef port : ports) {
    dispose(port, false);
  }
  for (const MIDIEndpointRef endpoint : endpoints) {
    dispose(endpoint, true);
  }
  return 0;
}

OSStatus MIDIObjectTable::createPort(MIDIClientRef client, Type type, const std::string& name,
                                     MIDIPortRef* port) {
  if (find(client, Type::client) == nullptr) {
    return kMIDIInvalidClient;
  }
  *port = add(type, name);
  mObjects[*port].client = client;
  return 0;
}

OSStatus MIDIObjectTable::MIDIOutputPortCreate(MIDIClientRef client, const std::string& name,
                                               MIDIPortRef* port) {
  const std::lock_guard lock(mMutex);
  return createPort(client, Type::outputPort, name, port);
}

OSStatus MIDIObjectTable::MIDIInputPortCreate(MIDIClientRef client, const std::string& name,
                                              MIDIReadProc readProc, void* refCon,
                                              MIDIPortRef* port) {
  const std::lock_guard lock(mMutex);
  ReceiverRef receiver;
  if (find(client, Type::client) == nullptr ||
      !mReadThread.addReceiver(readProc, refCon, receiver)) {
    return kMIDIInvalidClient;
  }
  const OSStatus status = createPort(client, Type::inputPort, name, port);
  mObjects[*port].receiver = receiver;
  return status;
}

OSStatus MIDIObjectTable::MIDISourceCreate(MIDIClientRef client, const std::string& name,
                                           MIDIEndpointRef* source) {
  const std::lock_guard lock(mMutex);
  if (find(client, Type::client) == nullptr) {
    return kMIDIInvalidClient;
  }
  *source = addEndpoint(Type::source, name, uniqueIDOfPort(name));
  mObjects[*source].client = client;
  if (mOutside != nullptr) {
    mOutside->addVirtualSource(*source, name);
  }
  notify(kMIDIMsgObjectAdded);
  return 0;
}

OSStatus MIDIObjectTable::MIDIDestinationCreate(MIDIClientRef client, const std::string& name,
                                                MIDIReadProc readProc, void* refCon,
                                                MIDIEndpointRef* destination) {
  const std::lock_guard lock(mMutex);
  ReceiverRef receiver;
  if (find(client, Type::client) == nullptr ||
      !mReadThread.addReceiver(readProc, refCon, receiver)) {
    return kMIDIInvalidClient;
  }
  *destination = addEndpoint(Type::destination, name, uniqueIDOfPort(name));
  mObjects[*destination].receiver = receiver;
  mObjects[*destination].client = client;
  if (mOutside != nullptr) {
    mOutside->addVirtualDestination(*destination, name, receiver);
  }
  notify(kMIDIMsgObjectAdded);
  return 0;
}

OSStatus MIDIObjectTable::dispose(MIDIObjectRef ref, bool isEndpoint) {
  std::optional<ReceiverRef> receiver;
  {
    const std::lock_guard lock(mMutex);
    const auto it = mObjects.find(ref);
    const auto isWanted = [isEndpoint](const Object& object) {
      return isEndpoint ? !object.outside &&
                              (object.type == Type::source || object.type == Type::destination)
                        : object.type == Type::outputPort || object.type == Type::inputPort;
    };
    if (it == mObjects.end() || !isWanted(it->second)) {
      return isEndpoint ? kMIDIUnknownEndpoint : kMIDIInvalidPort;
    }
    receiver = it->second.receiver;
    if (receiver) {
      mReadThread.removeReceiver(*receiver);
    }
    if (mOutside != nullptr) {
      if (isEndpoint) {
        mOutside->removeVirtual(ref);
      } else {
        for (const Connection& connection : mConnections) {
          if (connection.port == ref) {
            mOutside->disconnect(ref, connection.source);
          }
        }
        mOutside->removePort(ref);
      }
    }
    std::erase_if(mConnections, [ref](const Connection& connection) {
      return connection.port == ref || connection.source == ref;
    });
    mObjects.erase(it);
    if (isEndpoint) {
      notify(kMIDIMsgObjectRemoved);
    }
  }
  if (receiver) {
    mReadThread.waitUntilQuiet();
    const std::lock_guard lock(mMutex);
    mReadThread.releaseReceiver(*receiver);
  }
  return 0;
}

OSStatus MIDIObjectTable::MIDIPortDispose(MIDIPortRef port) {
  return dispose(port, false);
}
OSStatus MIDIObjectTable::MIDIEndpointDispose(MIDIEndpointRef endpoint) {
  return dispose(endpoint, true);
}

// --- connections ---

OSStatus MIDIObjectTable::MIDIPortConnectSource(MIDIPortRef port, MIDIEndpointRef source,
                                                void* sourceRefCon) {
  const std::lock_guard lock(mMutex);
  const Object* from = find(source, Type::source);
  const Object* to = find(port, Type::inputPort);
  if (to == nullptr) {
    return kMIDIInvalidPort;
  }
  if (from == nullptr) {
    return kMIDIUnknownEndpoint;
  }
  const auto known = std::find_if(
      mConnections.begin(), mConnections.end(),
      [port, source](const Connection& c) { return c.port == port && c.source == source; });
  if (known != mConnections.end()) {
    known->sourceRefCon = sourceRefCon;
  } else {
    mConnections.push_back({port, source, sourceRefCon});
  }
  if (from->outside) {
    mOutside->connect({port, to->name}, {source, from->name}, *to->receiver, sourceRefCon);
  }
  return 0;
}

OSStatus MIDIObjectTable::MIDIPortDisconnectSource(MIDIPortRef port, MIDIEndpointRef source) {
  const std::lock_guard lock(mMutex);
  const auto removed = std::erase_if(mConnections, [port, source](const Connection& c) {
    return c.port == port && c.source == source;
  });
  if (removed == 0) {
    return kMIDINoConnection;
  }
  const Object* from = find(source, Type::source);
  if (from != nullptr && from->outside) {
    mOutside->disconnect(port, source);
  }
  return 0;
}

// --- lists and properties ---

std::size_t MIDIObjectTable::MIDIGetNumberOfSources() {
  const std::lock_guard lock(mMutex);
  return count(Type::source);
}
MIDIEndpointRef MIDIObjectTable::MIDIGetSource(std::size_t index) {
  const std::lock_guard lock(mMutex);
  return at(Type::source, index);
}
std::size_t MIDIObjectTable::MIDIGetNumberOfDestinations() {
  const std::lock_guard lock(mMutex);
  return count(Type::destination);
}
MIDIEndpointRef MIDIObjectTable::MIDIGetDestination(std::size_t index) {
  const std::lock_guard lock(mMutex);
  return at(Type::destination, index);
}

OSStatus MIDIObjectTable::MIDIObjectFindByUniqueID(MIDIUniqueID id, MIDIObjectRef* object) {
  const std::lock_guard lock(mMutex);
  for (const auto& [ref, candidate] : mObjects) {
    const auto it = candidate.properties.find(kMIDIPropertyUniqueID);
    if (candidate.present && it != candidate.properties.end() &&
        std::get<std::int32_t>(it->second) == id) {
      *object = ref;
      return 0;
    }
  }
  return kMIDIObjectNotFound;
}

template <class Value>
OSStatus MIDIObjectTable::getProperty(MIDIObjectRef object, MIDIProperty property, Value* value) {
  const std::lock_guard lock(mMutex);
  const auto entry = mObjects.find(object);
  if (entry == mObjects.end()) {
    return kMIDIObjectNotFound;
  }
  const auto it = entry->second.properties.find(property);
  if (it == entry->second.properties.end()) {
    return kMIDIUnknownProperty;
  }
  const auto* found = std::get_if<Value>(&it->second);
  if (found == nullptr) {
    return kMIDIWrongPropertyType;
  }
  *value = *found;
  return 0;
}

template <class Value>
OSStatus MIDIObjectTable::setProperty(MIDIObjectRef object, MIDIProperty property,
                                      const Value& value) {
  const std::lock_guard lock(mMutex);
  const auto entry = mObjects.find(object);
  if (entry == mObjects.end()) {
    return kMIDIObjectNotFound;
  }
  const auto it = entry->second.properties.find(property);
  if (it != entry->second.properties.end() && !std::holds_alternative<Value>(it->second)) {
    return kMIDIWrongPropertyType;
  }
  if constexpr (!std::is_same_v<Value, std::int32_t>) {
    if (property == kMIDIPropertyUniqueID) {
      return kMIDIWrongPropertyType;
    }
  } else {
    if (property == kMIDIPropertyUniqueID && (value == 0 || !idIsFree(value, object))) {
      return kMIDIIDNotUnique;
    }
  }
  entry->second.properties.insert_or_assign(std::string(property), value);
  return 0;
}

OSStatus MIDIObjectTable::MIDIObjectGetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                       std::int32_t* value) {
  return getProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectSetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                       std::int32_t value) {
  return setProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectGetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                                      std::string* value) {
  return getProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectSetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                                      const std::string& value) {
  return setProperty(object, property, value);
}

// --- traffic ---

OSStatus MIDIObjectTable::MIDISend(MIDIPortRef port, MIDIEndpointRef destination,
                                   const MIDIPacketList* packets) {
  const std::lock_guard lock(mMutex);
  const Object* from = find(port, Type::outputPort);
  const Object* to = find(destination, Type::destination);
  if (from == nullptr) {
    return kMIDIInvalidPort;
  }
  if (to == nullptr || !to->present) {
    return kMIDIUnknownEndpoint;
  }
  if (to->outside) {
    return mOutside->send({port, from->name}, {destination, to->name}, *packets);
  }
  OSStatus status = 0;
  forEachPacket(*packets, [this, to, &status](const MIDIPacket& packet) {
    if (!mReadThread.deliver(*to->receiver, nullptr, packet.timeStamp, packet.data,
                             packet.length)) {
      status = kMIDIMessageSendErr;
    }
  });
  return status;
}

void MIDIObjectTable::endSending(MIDIPortRef port, MIDIEndpointRef destination) {
  const std::lock_guard lock(mMutex);
  const Object* to = find(destination, Type::destination);
  if (to != nullptr && to->outside && to->present) {
    mOutside->endSending(port, destination);
  }
}

OSStatus MIDIObjectTable::MIDIReceived(MIDIEndpointRef source, const MIDIPacketList* packets) {
  const std::lock_guard lock(mMutex);
  const Object* from = find(source, Type::source);
  if (from == nullptr || from->outside) {
    return kMIDIUnknownEndpoint;
  }
  OSStatus status = 0;
  for (const Connection& connection : mConnections) {
    if (connection.source != source) {
      continue;
    }
    const ReceiverRef receiver = *mObjects[connection.port].receiver;
    forEachPacket(*packets, [this, &connection, receiver, &status](const MIDIPacket& packet) {
      if (!mReadThread.deliver(receiver, connection.sourceRefCon, packet.timeStamp, packet.data,
                               packet.length)) {
        status = kMIDIMessageSendErr;
      }
    });
  }
  if (mOutside != nullptr) {
    const OSStatus outside = mOutside->received(source, *packets);
    return status != 0 ? status : outside;
  }
  return status;
}

void MIDIObjectTable::waitUntilSettled() {
  if (mOutside != nullptr) {
    mOutside->waitUntilSettled();
  }
}

void MIDIObjectTable::whenSettled(host::Queue& queue, host::Task task) {
  if (mOutside != nullptr) {
    mOutside->whenSettled(queue, std::move(task));
  } else {
    queue.async(std::move(task));
  }
}

bool MIDIObjectTable::isConnected() {
  return mOutside != nullptr && mOutside->isConnected();
}

std::string MIDIObjectTable::serverDescription() {
  return mOutside != nullptr ? mOutside->description() : "in process";
}

// --- the outside ---

MIDIEndpointRef MIDIObjectTable::endpointAppeared(MIDIEndpointKind kind,
                                                  const std::string& portName,
                                                  const std::string& displayName) {
  const std::lock_guard lock(mMutex);
  const Type type = kind == MIDIEndpointKind::source ? Type::source : Type::destination;
  const auto known = std::find_if(mObjects.begin(), mObjects.end(), [&](const auto& entry) {
    return entry.second.outside && entry.second.type == type && entry.second.name == portName;
  });
  MIDIEndpointRef ref = 0;
  bool wasPresent = false;
  if (known != mObjects.end()) {
    ref = known->first;
    wasPresent = std::exchange(known->second.present, true);
  } else {
    ref = addEndpoint(type, portName, uniqueIDOfPort(portName));
    mObjects[ref].outside = true;
    mObjects[ref].properties[std::string(kMIDIPropertyServerPort)] = portName;
  }
  auto& shown = mObjects[ref].properties[std::string(kMIDIPropertyDisplayName)];
  const bool isRenamed = std::get<std::string>(shown) != displayName;
  shown = displayName;
  if (!wasPresent) {
    notify(kMIDIMsgObjectAdded);
  } else if (isRenamed) {
    notify(kMIDIMsgSetupChanged);
  }
  return ref;
}

void MIDIObjectTable::endpointVanished(MIDIEndpointRef endpoint) {
  const std::lock_guard lock(mMutex);
  const auto it = mObjects.find(endpoint);
  if (it != mObjects.end() && it->second.outside && std::exchange(it->second.present, false)) {
    notify(kMIDIMsgObjectRemoved);
  }
}

bool MIDIObjectTable::deliver(const host::RealtimeContext&, ReceiverRef receiver,
                              void* sourceRefCon, MIDITimeStamp time, const std::uint8_t* data,
                              std::size_t length) noexcept {
  return mReadThread.deliver(receiver, sourceRefCon, time, data, length);
}

}  // namespace velor::midi
