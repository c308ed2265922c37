// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackMIDI.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "platform/host/Log.h"
#include "platform/host/Realtime.h"

namespace velor::midi {
namespace {

constexpr const char* kNoServer = "in process, no server";

}  // namespace

JackMIDI::JackMIDI(std::shared_ptr<jack::JackClient> client)
    : mHost(host::current()), mJack(std::move(client)), mQueue(mJack->queue()) {}

JackMIDI::~JackMIDI() {
  stop();
}

void JackMIDI::start(MIDIInside& inside) {
  mInside = &inside;
  mQueue.sync([this] { mJack->attach(*this); });
}

void JackMIDI::stop() {
  if (mInside == nullptr) {
    return;
  }
  mQueue.sync([this] {
    mJack->detach(*this);
    // Others may keep the client open.
    for (const PortPtr& port : mKnown) {
      mJack->unregisterPort(*port);
    }
    mKnown.clear();
  });
  mInside = nullptr;
}

std::string JackMIDI::description() {
  const std::string server = mJack->description();
  return server.empty() ? kNoServer : server;
}

// --- from the object table ---

JackMIDI::PortPtr JackMIDI::addPort(Key key, const std::string& name, bool isOutput,
                                    const std::string& peer, ReceiverRef receiver,
                                    void* sourceRefCon) {
  auto port = std::make_shared<Port>();
  port->name = name;
  port->type = JACK_DEFAULT_MIDI_TYPE;
  port->isOutput = isOutput;
  port->peer = peer;
  port->receiver = receiver;
  port->sourceRefCon = sourceRefCon;
  mPorts[key] = port;
  mQueue.async([this, port] {
    mKnown.push_back(port);
    registerPort(port);
  });
  return port;
}

void JackMIDI::dropPorts(bool (*matches)(const Key&, Key), Key wanted) {
  for (auto it = mPorts.begin(); it != mPorts.end();) {
    if (!matches(it->first, wanted)) {
      ++it;
      continue;
    }
    mQueue.async([this, port = it->second] {
      unregisterPort(port);
      std::erase(mKnown, port);
    });
    it = mPorts.erase(it);
  }
}

void JackMIDI::addVirtualSource(MIDIEndpointRef source, const std::string& name) {
  addPort({source, 0}, name, true, "", {}, nullptr);
}

void JackMIDI::addVirtualDestination(MIDIEndpointRef destination, const std::string& name,
                                     ReceiverRef receiver) {
  addPort({destination, 0}, name, false, "", receiver, nullptr);
}

void JackMIDI::removeVirtual(MIDIEndpointRef endpoint) {
  dropPorts([](const Key& key, Key wanted) { return key == wanted; }, {endpoint, 0});
}

void JackMIDI::removePort(MIDIPortRef port) {
  dropPorts([](const Key& key, Key wanted) { return key.first == wanted.first; }, {port, 0});
}

void JackMIDI::connect(Named port, Named source, ReceiverRef receiver, void* sourceRefCon) {
  const Key key{port.ref, source.ref};
  disconnect(port.ref, source.ref);
  addPort(key, port.name + " < " + source.name, false, source.name, receiver, sourceRefCon);
}

void JackMIDI::disconnect(MIDIPortRef port, MIDIEndpointRef source) {
  dropPorts([](const Key& key, Key wanted) { return key == wanted; }, {port, source});
}

OSStatus JackMIDI::send(Named port, Named destination, const MIDIPacketList& packets) {
  const Key key{port.ref, destination.ref};
  const auto it = mPorts.find(key);
  const PortPtr& to = it != mPorts.end() ? it->second
                                         : addPort(key, port.name + " > " + destination.name, true,
                                                   destination.name, {}, nullptr);
  return to->lane.send(packets, mHost.AudioGetCurrentHostTime());
}

OSStatus JackMIDI::received(MIDIEndpointRef source, const MIDIPacketList& packets) {
  const auto it = mPorts.find({source, 0});
  return it == mPorts.end() ? kMIDIUnknownEndpoint
                            : it->second->lane.send(packets, mHost.AudioGetCurrentHostTime());
}

// --- the server, on mQueue ---

void JackMIDI::opened() {
  for (const PortPtr& port : mKnown) {
    registerPort(port);
  }
}

void JackMIDI::closed() {
  for (auto& entry : mActive) {
    entry.store(nullptr);
  }
  for (const PortPtr& port : mKnown) {
    port->inService = false;
  }
  for (const auto& [name, endpoint] : mEndpoints) {
    mInside->endpointVanished(endpoint.first);
  }
  mEndpoints.clear();
}

void JackMIDI::registerPort(const PortPtr& port) {
  const auto order = std::find(mKnown.begin(), mKnown.end(), port) - mKnown.begin();
  mJack->registerPort(*port, static_cast<int>(order));
  if (port->port == nullptr) {
    return;
  }
  if (!port->peer.empty()) {
    connectPeer(*port);
  }
  putInService(port);
}

// The first packets after it are not to be lost.
void JackMIDI::connectPeer(Port& port) {
  if (mJack->connectPeer(port)) {
    mJack->awaitCycles(2);
  }
}

void JackMIDI::unregisterPort(const PortPtr& port) {
  takeOutOfService(*port);
  mJack->unregisterPort(*port);
}

void JackMIDI::putInService(const PortPtr& port) {
  const auto place = std::find_if(mActive.begin(), mActive.end(), [](const auto& entry) {
    return entry.load(std::memory_order_relaxed) == nullptr;
  });
  if (place == mActive.end()) {
    VELOR_LOG_ERROR("too many MIDI ports, %s stays silent", port->name.c_str());
    return;
  }
  port->inService = true;
  place->store(port.get());
}

void JackMIDI::takeOutOfService(Port& port) {
  if (!std::exchange(port.inService, false)) {
    return;
  }
  for (auto& entry : mActive) {
    if (entry.load(std::memory_order_relaxed) == &port) {
      entry.store(nullptr);
    }
  }
  mJack->awaitCycles(1);
}

std::string JackMIDI::displayNameOf(jack_port_t* port, const std::string& fullName) const {
  const jack::JackLibrary& library = mJack->library();
  const std::string name = library.prettyName(library.jack_port_uuid(port));
  return name.empty() ? fullName : name;
}

void JackMIDI::rescan(const std::set<std::string>& renewed) {
  const jack::JackLibrary& library = mJack->library();
  jack_client_t* client = mJack->client();
  std::map<std::string, std::pair<MIDIEndpointRef, MIDIEndpointKind>> found;
  const char** names = library.jack_get_ports(client, nullptr, JACK_DEFAULT_MIDI_TYPE, 0);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    jack_port_t* port = library.jack_port_by_name(client, *name);
    if (port == nullptr || library.jack_port_is_mine(client, port) != 0) {
      continue;
    }
    // What another client puts out is a source to us.
    const bool isSource = (library.jack_port_flags(port) & JackPortIsOutput) != 0;
    const auto kind = isSource ? MIDIEndpointKind::source : MIDIEndpointKind::destination;
    // One that is registered anew has lost its connections, also when it was gone
    // too briefly to be missed here.
    const bool isNew = !mEndpoints.contains(*name) || renewed.contains(*name);
    const MIDIEndpointRef ref = mInside->endpointAppeared(kind, *name, displayNameOf(port, *name));
    found[*name] = {ref, kind};
    if (isNew) {
      for (const PortPtr& own : mKnown) {
        if (own->peer == *name && own->isOutput != isSource) {
          connectPeer(*own);
        }
      }
    }
  }
  library.jack_free(names);
  for (const auto& [name, endpoint] : mEndpoints) {
    if (!found.contains(name)) {
      mInside->endpointVanished(endpoint.first);
    }
  }
  mEndpoints = std::move(found);
}

void JackMIDI::report() {
  for (const PortPtr& port : mKnown) {
    const std::uint64_t dropped = port->lane.dropped();
    if (dropped != port->droppedReported) {
      VELOR_LOG_WARNING("%" PRIu64 " MIDI packets came too late for %s",
                        dropped - port->droppedReported, port->name.c_str());
      port->droppedReported = dropped;
    }
  }
}

// --- the process callback ---

void JackMIDI::process(const host::RealtimeContext& realtime,
                       const jack::JackCycle& cycle) noexcept {
  const jack::JackLibrary& library = mJack->library();
  for (const auto& entry : mActive) {
    Port* port = entry.load();
    if (port == nullptr) {
      continue;
    }
    void* buffer = library.jack_port_get_buffer(port->port, cycle.frames);
    if (buffer == nullptr) {
      continue;
    }
    if (port->isOutput) {
      library.jack_midi_clear_buffer(buffer);
      port->lane.process(realtime, cycle,
                         [&library, buffer](std::uint32_t offset, const std::uint8_t* data,
                                            std::size_t length) noexcept {
                           jack_midi_data_t* place =
                               library.jack_midi_event_reserve(buffer, offset, length);
                           if (place == nullptr) {
                             return false;
                           }
                           std::copy_n(data, length, place);
                           return true;
                         });
      continue;
    }
    const std::uint32_t count = library.jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
      jack_midi_event_t event{};
      if (library.jack_midi_event_get(&event, buffer, i) == 0) {
        mInside->deliver(realtime, port->receiver, port->sourceRefCon, cycle.timeAt(event.time),
                         event.buffer, event.size);
      }
    }
  }
}

}  // namespace velor::midi
