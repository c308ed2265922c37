// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackMIDI.h"

#include <algorithm>
#include <cinttypes>
#include <iterator>
#include <mutex>
#include <utility>

#include "platform/host/Log.h"
#include "platform/host/Realtime.h"

namespace velor::midi {
namespace {

constexpr const char* kNoServer = "internal, no server";
// Between two looks at a port that is to close, while packets wait in it.
constexpr std::uint64_t kClosingInterval = 50'000'000;  // ns

}  // namespace

JackMIDI::JackMIDI(std::shared_ptr<jack::JackClient> client)
    : mHost(host::current()), mJack(std::move(client)), mQueue(mJack->queue()), mSelf(this) {}

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
    mSelf.reset();
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
  mDue.push_back(port);
  // A job for each port, so that a wait for the queue after this call includes it. The first
  // job opens all ports that are due by then.
  mQueue.async([this] { openDue(); });
  return port;
}

template <class Matches>
void JackMIDI::dropPorts(const Matches& matches) {
  const std::lock_guard lock(mPortsMutex);
  std::erase_if(mPorts, [this, &matches](const auto& entry) {
    if (!matches(entry.first)) {
      return false;
    }
    mQueue.async([this, port = entry.second] { close(port); });
    return true;
  });
}

void JackMIDI::addVirtualSource(MIDIEndpointRef source, const std::string& name) {
  const std::lock_guard lock(mPortsMutex);
  addPort({source, 0}, name, true, "", {}, nullptr);
}

void JackMIDI::addVirtualDestination(MIDIEndpointRef destination, const std::string& name,
                                     ReceiverRef receiver) {
  const std::lock_guard lock(mPortsMutex);
  addPort({destination, 0}, name, false, "", receiver, nullptr);
}

void JackMIDI::removeVirtual(MIDIEndpointRef endpoint) {
  dropPorts([endpoint](const Key& key) { return key == Key{endpoint, 0}; });
}

void JackMIDI::removePort(MIDIPortRef port) {
  dropPorts([port](const Key& key) { return key.first == port; });
}

void JackMIDI::connect(Named port, Named source, ReceiverRef receiver, void* sourceRefCon) {
  disconnect(port.ref, source.ref);
  const std::lock_guard lock(mPortsMutex);
  addPort({port.ref, source.ref}, port.name + " < " + source.name, false, source.name, receiver,
          sourceRefCon);
}

void JackMIDI::disconnect(MIDIPortRef port, MIDIEndpointRef source) {
  dropPorts([port, source](const Key& key) { return key == Key{port, source}; });
}

OSStatus JackMIDI::send(Named port, Named destination, const MIDIPacketList& packets) {
  const std::lock_guard lock(mPortsMutex);
  const Key key{port.ref, destination.ref};
  const auto it = mPorts.find(key);
  const PortPtr& to = it != mPorts.end() ? it->second
                                         : addPort(key, port.name + " > " + destination.name, true,
                                                   destination.name, {}, nullptr);
  to->isEnding = false;
  return to->lane.send(packets, mHost.AudioGetCurrentHostTime());
}

OSStatus JackMIDI::received(MIDIEndpointRef source, const MIDIPacketList& packets) {
  const std::lock_guard lock(mPortsMutex);
  const auto it = mPorts.find({source, 0});
  return it == mPorts.end() ? kMIDIUnknownEndpoint
                            : it->second->lane.send(packets, mHost.AudioGetCurrentHostTime());
}

void JackMIDI::endSending(MIDIPortRef port, MIDIEndpointRef destination) {
  const std::lock_guard lock(mPortsMutex);
  const auto it = mPorts.find({port, destination});
  if (it != mPorts.end() && !std::exchange(it->second->isEnding, true)) {
    mQueue.async([this, key = it->first] { closeWhenSent(key); });
  }
}

// --- the server, on mQueue ---

void JackMIDI::opened() {
  open(mKnown);
}

void JackMIDI::closed() {
  for (const PortPtr& port : mKnown) {
    port->isConnected = false;
  }
  publish();
  for (const auto& [name, endpoint] : mEndpoints) {
    mInside->endpointVanished(endpoint.first);
  }
  mEndpoints.clear();
}

void JackMIDI::openDue() {
  PortList due;
  {
    const std::lock_guard lock(mPortsMutex);
    due.swap(mDue);
  }
  mKnown.insert(mKnown.end(), due.begin(), due.end());
  open(due);
}

void JackMIDI::open(const PortList& ports) {
  if (ports.empty()) {
    return;
  }
  auto order = static_cast<int>(mKnown.size() - ports.size());
  for (const PortPtr& port : ports) {
    mJack->registerPort(*port, order++);
  }
  publish();  // before they are connected, since events come in at once
  connectPeers(ports);
}

// The first packets after it must not be lost.
void JackMIDI::connectPeers(const PortList& ports) {
  PortList connected;
  std::copy_if(ports.begin(), ports.end(), std::back_inserter(connected), [this](const auto& port) {
    return !port->peer.empty() && mJack->connectPeer(*port);
  });
  if (connected.empty()) {
    return;
  }
  awaitCycles(2);
  for (const PortPtr& port : connected) {
    port->isConnected = true;
  }
  publish();
}

void JackMIDI::publish() {
  auto list = std::make_unique<PortList>();
  std::copy_if(mKnown.begin(), mKnown.end(), std::back_inserter(*list), [](const auto& port) {
    const bool waits = port->isOutput && !port->peer.empty() && !port->isConnected;
    return port->port != nullptr && !waits;
  });
  mActive.store(list.get());
  mLists.push_back(std::move(list));
}

void JackMIDI::awaitCycles(std::uint32_t count) {
  const auto former = static_cast<std::ptrdiff_t>(mLists.size()) - 1;
  mJack->awaitCycles(count);
  if (former > 0) {
    mLists.erase(mLists.begin(), mLists.begin() + former);
  }
}

void JackMIDI::close(const PortPtr& port) {
  std::erase(mKnown, port);
  publish();
  awaitCycles(1);
  mJack->unregisterPort(*port);
}

void JackMIDI::closeWhenSent(Key key) {
  PortPtr port;
  {
    const std::lock_guard lock(mPortsMutex);
    const auto it = mPorts.find(key);
    if (it == mPorts.end() || !it->second->isEnding) {
      return;  // it has gone, or is in use again
    }
    // Without a connection its packets have nowhere to go.
    if (!it->second->isConnected || it->second->lane.isEmpty()) {
      port = it->second;
      mPorts.erase(it);
    }
  }
  if (port == nullptr) {
    closeLater(key);
    return;
  }
  // The last packets are in the port's buffer: receivers read it in this cycle, the driver
  // perhaps at the start of the next one, and then it is empty.
  awaitCycles(2);
  close(port);
}

void JackMIDI::closeLater(Key key) {
  mQueue.after(kClosingInterval, mSelf->job([key](JackMIDI& self) { self.closeWhenSent(key); }));
}

std::string JackMIDI::displayNameOf(jack_port_t* port, const std::string& fullName) const {
  const jack::JackLibrary& library = mJack->library();
  const std::string name = library.prettyName(library.jack_port_uuid(port));
  return name.empty() ? fullName : name;
}

void JackMIDI::rescan(const std::set<std::string>& renewed) {
  const jack::JackLibrary& library = mJack->library();
  jack_client_t* client = mJack->client();
  Endpoints found;
  const char** names = library.jack_get_ports(client, nullptr, JACK_DEFAULT_MIDI_TYPE, 0);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    jack_port_t* port = library.jack_port_by_name(client, *name);
    if (port == nullptr || library.jack_port_is_mine(client, port) != 0) {
      continue;
    }
    // An output of another client is a source to us.
    const bool isSource = (library.jack_port_flags(port) & JackPortIsOutput) != 0;
    found[*name] = {0, isSource ? MIDIEndpointKind::source : MIDIEndpointKind::destination};
  }
  library.jack_free(names);

  for (const auto& [name, endpoint] : mEndpoints) {
    if (!found.contains(name)) {
      mInside->endpointVanished(endpoint.first);
    }
  }
  PortList unconnected;
  for (const PortPtr& own : mKnown) {
    const auto peer = found.find(own->peer);
    const auto kind = own->isOutput ? MIDIEndpointKind::destination : MIDIEndpointKind::source;
    const bool isPresent = peer != found.end() && peer->second.second == kind;
    // A peer that was registered again has lost its connections, even if it was missing too
    // briefly to be noticed here.
    own->isConnected = own->isConnected && isPresent && !renewed.contains(own->peer);
    if (isPresent && !own->isConnected) {
      unconnected.push_back(own);
    }
  }
  connectPeers(unconnected);
  // After the connections, so that the first packets to a new endpoint arrive.
  for (auto& [name, endpoint] : found) {
    if (jack_port_t* port = library.jack_port_by_name(client, name.c_str())) {
      endpoint.first = mInside->endpointAppeared(endpoint.second, name, displayNameOf(port, name));
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
  const PortList* active = mActive.load();
  if (active == nullptr) {
    return;
  }
  for (const PortPtr& port : *active) {
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
