// SPDX-License-Identifier: MIT
#include "platform/midi/builtin/MIDIObjectTable.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace velor::midi {

MIDIObjectTable::MIDIObjectTable(std::unique_ptr<MIDIOutside> outside)
    : mOutside(std::move(outside)), mSelf(this) {
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

void MIDIObjectTable::notify(MIDINotificationMessageID message) {
  if (message == kMIDIMsgObjectRemoved) {
    mNews.removed = true;
  } else if (message == kMIDIMsgObjectAdded) {
    mNews.added = true;
  }
  if (std::exchange(mNews.isPosted, true)) {
    return;
  }
  host::current().mainQueue().async(mSelf.job([](MIDIObjectTable& self) { self.tellNews(); }));
}

void MIDIObjectTable::tellNews() {
  News news;
  std::vector<MIDIClientRef> clients;
  {
    const std::lock_guard lock(mMutex);
    news = std::exchange(mNews, {});
    for (const auto& [ref, object] : mObjects.all()) {
      if (object.type == Type::client && object.notifyProc != nullptr) {
        clients.push_back(ref);
      }
    }
  }
  for (const MIDIClientRef client : clients) {
    // The kind of change, then that there was one; clients may look at either.
    if (news.removed) {
      tell(client, kMIDIMsgObjectRemoved);
    }
    if (news.added) {
      tell(client, kMIDIMsgObjectAdded);
    }
    tell(client, kMIDIMsgSetupChanged);
  }
}

void MIDIObjectTable::tell(MIDIClientRef client, MIDINotificationMessageID message) {
  MIDINotifyProc notifyProc = nullptr;
  void* refCon = nullptr;
  {
    const std::lock_guard lock(mMutex);
    // A notify function may have disposed of a client whose turn is to come.
    const Object* object = mObjects.find(client, Type::client);
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
  *client = mObjects.add(Type::client, name);
  Object* object = mObjects.find(*client);
  object->notifyProc = notifyProc;
  object->notifyRefCon = refCon;
  return 0;
}

OSStatus MIDIObjectTable::MIDIClientDispose(MIDIClientRef client) {
  std::vector<MIDIPortRef> ports;
  std::vector<MIDIEndpointRef> endpoints;
  {
    const std::lock_guard lock(mMutex);
    if (mObjects.find(client, Type::client) == nullptr) {
      return kMIDIInvalidClient;
    }
    for (const auto& [ref, object] : mObjects.all()) {
      if (object.client == client) {
        (object.isEndpoint() ? endpoints : ports).push_back(ref);
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
  if (mObjects.find(client, Type::client) == nullptr) {
    return kMIDIInvalidClient;
  }
  *port = mObjects.add(type, name);
  mObjects.find(*port)->client = client;
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
  if (mObjects.find(client, Type::client) == nullptr ||
      !mReadThread.addReceiver(readProc, refCon, receiver)) {
    return kMIDIInvalidClient;
  }
  const OSStatus status = createPort(client, Type::inputPort, name, port);
  mObjects.find(*port)->receiver = receiver;
  return status;
}

OSStatus MIDIObjectTable::MIDISourceCreate(MIDIClientRef client, const std::string& name,
                                           MIDIEndpointRef* source) {
  const std::lock_guard lock(mMutex);
  if (mObjects.find(client, Type::client) == nullptr) {
    return kMIDIInvalidClient;
  }
  *source = mObjects.addEndpoint(Type::source, name);
  mObjects.find(*source)->client = client;
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
  if (mObjects.find(client, Type::client) == nullptr ||
      !mReadThread.addReceiver(readProc, refCon, receiver)) {
    return kMIDIInvalidClient;
  }
  *destination = mObjects.addEndpoint(Type::destination, name);
  Object* object = mObjects.find(*destination);
  object->receiver = receiver;
  object->client = client;
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
    const Object* object = mObjects.find(ref);
    const bool isWanted =
        object != nullptr &&
        (isEndpoint ? object->isEndpoint() && !object->outside
                    : object->type == Type::outputPort || object->type == Type::inputPort);
    if (!isWanted) {
      return isEndpoint ? kMIDIUnknownEndpoint : kMIDIInvalidPort;
    }
    receiver = object->receiver;
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
    mObjects.erase(ref);
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
  const Object* from = mObjects.find(source, Type::source);
  const Object* to = mObjects.find(port, Type::inputPort);
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
  const Object* from = mObjects.find(source, Type::source);
  if (from != nullptr && from->outside) {
    mOutside->disconnect(port, source);
  }
  return 0;
}

// --- lists and properties ---

std::size_t MIDIObjectTable::MIDIGetNumberOfSources() {
  const std::lock_guard lock(mMutex);
  return mObjects.present(Type::source).size();
}
MIDIEndpointRef MIDIObjectTable::MIDIGetSource(std::size_t index) {
  return presentAt(Type::source, index);
}
std::size_t MIDIObjectTable::MIDIGetNumberOfDestinations() {
  const std::lock_guard lock(mMutex);
  return mObjects.present(Type::destination).size();
}
MIDIEndpointRef MIDIObjectTable::MIDIGetDestination(std::size_t index) {
  return presentAt(Type::destination, index);
}
MIDIEndpointRef MIDIObjectTable::presentAt(MIDIObjects::Type type, std::size_t index) {
  const std::lock_guard lock(mMutex);
  const auto& list = mObjects.present(type);
  return index < list.size() ? list[index] : 0;
}

OSStatus MIDIObjectTable::MIDIObjectFindByUniqueID(MIDIUniqueID id, MIDIObjectRef* object) {
  const std::lock_guard lock(mMutex);
  const MIDIObjectRef found = mObjects.withUniqueID(id);
  if (found == 0) {
    return kMIDIObjectNotFound;
  }
  *object = found;
  return 0;
}

OSStatus MIDIObjectTable::MIDIObjectGetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                       std::int32_t* value) {
  const std::lock_guard lock(mMutex);
  return mObjects.getProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectSetIntegerProperty(MIDIObjectRef object, MIDIProperty property,
                                                       std::int32_t value) {
  const std::lock_guard lock(mMutex);
  return mObjects.setProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectGetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                                      std::string* value) {
  const std::lock_guard lock(mMutex);
  return mObjects.getProperty(object, property, value);
}
OSStatus MIDIObjectTable::MIDIObjectSetStringProperty(MIDIObjectRef object, MIDIProperty property,
                                                      const std::string& value) {
  const std::lock_guard lock(mMutex);
  return mObjects.setProperty(object, property, value);
}

// --- traffic ---

OSStatus MIDIObjectTable::MIDISend(MIDIPortRef port, MIDIEndpointRef destination,
                                   const MIDIPacketList* packets) {
  const std::lock_guard lock(mMutex);
  const Object* from = mObjects.find(port, Type::outputPort);
  const Object* to = mObjects.find(destination, Type::destination);
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
  const Object* to = mObjects.find(destination, Type::destination);
  if (to != nullptr && to->outside && to->present) {
    mOutside->endSending(port, destination);
  }
}

OSStatus MIDIObjectTable::MIDIReceived(MIDIEndpointRef source, const MIDIPacketList* packets) {
  const std::lock_guard lock(mMutex);
  const Object* from = mObjects.find(source, Type::source);
  if (from == nullptr || from->outside) {
    return kMIDIUnknownEndpoint;
  }
  OSStatus status = 0;
  for (const Connection& connection : mConnections) {
    if (connection.source != source) {
      continue;
    }
    const ReceiverRef receiver = *mObjects.find(connection.port)->receiver;
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
  return mOutside != nullptr ? mOutside->description() : "internal";
}

// --- the outside ---

MIDIEndpointRef MIDIObjectTable::endpointAppeared(MIDIEndpointKind kind,
                                                  const std::string& portName,
                                                  const std::string& displayName) {
  const std::lock_guard lock(mMutex);
  const MIDIEndpointRef ref = mObjects.endpointOfPort(
      kind == MIDIEndpointKind::source ? Type::source : Type::destination, portName);
  Object& object = *mObjects.find(ref);
  const bool wasPresent = mObjects.setPresent(object, true);
  std::string shown = displayName;
  std::swap(std::get<std::string>(object.properties.find(kMIDIPropertyDisplayName)->second), shown);
  if (!wasPresent) {
    notify(kMIDIMsgObjectAdded);
  } else if (shown != displayName) {
    notify(kMIDIMsgSetupChanged);
  }
  return ref;
}

void MIDIObjectTable::endpointVanished(MIDIEndpointRef endpoint) {
  const std::lock_guard lock(mMutex);
  Object* object = mObjects.find(endpoint);
  if (object != nullptr && object->outside && mObjects.setPresent(*object, false)) {
    notify(kMIDIMsgObjectRemoved);
  }
}

bool MIDIObjectTable::deliver(const host::RealtimeContext&, ReceiverRef receiver,
                              void* sourceRefCon, MIDITimeStamp time, const std::uint8_t* data,
                              std::size_t length) noexcept {
  return mReadThread.deliver(receiver, sourceRefCon, time, data, length);
}

}  // namespace velor::midi
