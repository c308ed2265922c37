// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackMIDI.h"

#include <algorithm>
#include <cinttypes>
#include <utility>

#include "platform/host/Log.h"
#include "platform/host/Realtime.h"

namespace velor::midi {
namespace {

constexpr const char* kClientName = "Velor";
constexpr std::uint64_t kNsPerMs = 1'000'000;
constexpr std::uint64_t kRetryInterval = 500 * kNsPerMs;
constexpr std::uint64_t kRescanDelay = 20 * kNsPerMs;
constexpr std::uint64_t kReportInterval = 5000 * kNsPerMs;
// A cycle that does not come within this is taken for a server that stands still.
constexpr std::uint64_t kLongestCycle = 250 * kNsPerMs;
constexpr const char* kNoServer = "in process, no server";
constexpr const char* kPrettyNameKey = "http://jackaudio.org/metadata/pretty-name";
constexpr const char* kOrderKey = "http://jackaudio.org/metadata/order";

void ignoreMessage(const char*) {}

}  // namespace

bool JackMIDI::available() {
  const auto paths = JackLibrary::paths();
  return std::any_of(paths.begin(), paths.end(),
                     [](const std::string& path) { return JackLibrary::load(path) != nullptr; });
}

JackMIDI::JackMIDI() : mHost(host::current()) {
  tell(false, kNoServer);
}

JackMIDI::~JackMIDI() {
  stop();
}

void JackMIDI::start(MIDIInside& inside) {
  mInside = &inside;
  mQueue.sync([this] { tryOpen(); });
}

void JackMIDI::stop() {
  if (mInside == nullptr) {
    return;
  }
  mQueue.sync([this] {
    mEnding = true;
    closeClient();
    mKnown.clear();
  });
  mInside = nullptr;
}

std::string JackMIDI::description() {
  const std::lock_guard lock(mDescriptionMutex);
  return mDescription;
}

void JackMIDI::tell(bool connected, std::string description) {
  mConnected.store(connected);
  const std::lock_guard lock(mDescriptionMutex);
  mDescription = std::move(description);
}

// --- from the object table ---

JackMIDI::PortPtr JackMIDI::addPort(Key key, const std::string& name, bool isOutput,
                                    const std::string& peer, ReceiverRef receiver,
                                    void* sourceRefCon) {
  auto port = std::make_shared<Port>();
  port->name = name;
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

void JackMIDI::tryOpen() {
  if (mEnding || mClient != nullptr) {
    return;
  }
  for (const std::string& path : JackLibrary::paths()) {
    if (auto library = JackLibrary::load(path)) {
      openWith(std::move(library));
    }
    if (mClient != nullptr) {
      return;
    }
  }
  if (!std::exchange(mToldMissing, true)) {
    VELOR_LOG_WARNING("no MIDI server is running; ports of other programs appear when one does");
  }
  mQueue.after(kRetryInterval, [this] { tryOpen(); });
}

void JackMIDI::openWith(std::shared_ptr<const JackLibrary> library) {
  library->jack_set_error_function(ignoreMessage);
  library->jack_set_info_function(ignoreMessage);
  jack_status_t status{};
  jack_client_t* client = library->jack_client_open(kClientName, JackNoStartServer, &status);
  if (client == nullptr) {
    return;
  }
  mLibrary = std::move(library);
  mClient = client;
  mTimeBase.restart();
  ++mSession;

  // Whichever of the two the server calls; PipeWire knows only the first.
  mLibrary->jack_on_shutdown(mClient, &JackMIDI::onShutdown, this);
  mLibrary->jack_on_info_shutdown(mClient, &JackMIDI::onInfoShutdown, this);
  mLibrary->jack_set_process_callback(mClient, &JackMIDI::onProcess, this);
  mLibrary->jack_set_port_registration_callback(mClient, &JackMIDI::onPortRegistration, this);
  mLibrary->jack_set_property_change_callback(mClient, &JackMIDI::onPropertyChange, this);
  if (mLibrary->jack_activate(mClient) != 0) {
    VELOR_LOG_WARNING("the MIDI server refused to activate the client");
    closeClient();
    return;
  }
  mToldMissing = false;
  const std::string name = mLibrary->jack_get_client_name(mClient);
  tell(true, "JACK, client " + name + ", " +
                 std::to_string(mLibrary->jack_get_sample_rate(mClient)) + " Hz");
  VELOR_LOG_INFO("connected to the MIDI server as %s", name.c_str());
  for (const PortPtr& port : mKnown) {
    registerPort(port);
  }
  rescan();
  mQueue.after(kReportInterval, [this, session = mSession.load()] { reportDropped(session); });
}

void JackMIDI::closeClient() {
  if (mClient == nullptr) {
    return;
  }
  ++mSession;
  // First of all, since it ends the process callback: a dead server's does not come
  // any more, and waiting for it once a port would take seconds.
  mLibrary->jack_client_close(mClient);
  mClient = nullptr;
  for (auto& entry : mActive) {
    entry.store(nullptr);
  }
  for (const PortPtr& port : mKnown) {
    port->inService = false;
    port->port = nullptr;
  }
  mRenewed.clear();
  // The library may have cancelled its thread within the callback.
  mCycles.fetch_add(mCycles.load() & 1U);
  for (const auto& [name, endpoint] : mEndpoints) {
    mInside->endpointVanished(endpoint.first);
  }
  mEndpoints.clear();
  tell(false, kNoServer);
}

void JackMIDI::registerPort(const PortPtr& port) {
  if (mClient == nullptr || port->port != nullptr) {
    return;
  }
  const unsigned long flags = port->isOutput ? JackPortIsOutput : JackPortIsInput;
  // Names must be unique within the client and fit the server's limit.
  std::string name = port->name.substr(0, 200);
  std::replace(name.begin(), name.end(), ':', '/');
  for (int copy = 2; copy < 100 && port->port == nullptr; ++copy) {
    port->port =
        mLibrary->jack_port_register(mClient, name.c_str(), JACK_DEFAULT_MIDI_TYPE, flags, 0);
    if (port->port == nullptr) {
      name = port->name.substr(0, 200) + " " + std::to_string(copy);
      std::replace(name.begin(), name.end(), ':', '/');
    }
  }
  if (port->port == nullptr) {
    VELOR_LOG_ERROR("the MIDI server refused the port %s", port->name.c_str());
    return;
  }
  // A name for people; that a server cannot keep it is no fault.
  const jack_uuid_t uuid = mLibrary->jack_port_uuid(port->port);
  const auto order = std::find(mKnown.begin(), mKnown.end(), port) - mKnown.begin();
  mLibrary->jack_set_property(mClient, uuid, kPrettyNameKey, port->name.c_str(), "text/plain");
  mLibrary->jack_set_property(mClient, uuid, kOrderKey, std::to_string(order).c_str(),
                              "http://www.w3.org/2001/XMLSchema#int");
  if (!port->peer.empty()) {
    connectPeer(*port);
  }
  putInService(port);
}

void JackMIDI::connectPeer(Port& port) {
  if (port.port == nullptr || mLibrary->jack_port_by_name(mClient, port.peer.c_str()) == nullptr) {
    return;
  }
  const char* own = mLibrary->jack_port_name(port.port);
  const char* from = port.isOutput ? own : port.peer.c_str();
  const char* to = port.isOutput ? port.peer.c_str() : own;
  const int status = mLibrary->jack_connect(mClient, from, to);
  if (status != 0 && status != EEXIST) {
    VELOR_LOG_ERROR("cannot connect %s to %s (%i)", from, to, status);
    return;
  }
  // The connection is made in the cycle after the next at the latest; what is
  // written before that is lost.
  awaitCycles(2);
}

void JackMIDI::unregisterPort(const PortPtr& port) {
  takeOutOfService(*port);
  if (mClient != nullptr && port->port != nullptr) {
    mLibrary->jack_port_unregister(mClient, port->port);
  }
  port->port = nullptr;
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
  awaitCycles(1);
}

// Waits until the process callback has begun and ended so many times, or until it
// is plain that it does not come any more.
void JackMIDI::awaitCycles(std::uint32_t count) {
  const std::uint32_t before = mCycles.load();
  const std::uint32_t enough = 2 * count + (before & 1U);
  const std::uint64_t start = mHost.AudioGetCurrentHostTime();
  while (mCycles.load() - before < enough) {
    const std::uint64_t now = mHost.AudioGetCurrentHostTime();
    const bool idle = (mCycles.load() & 1U) == 0;
    if (idle && now - start > count * kLongestCycle) {
      return;
    }
    mHost.mach_wait_until(now + kNsPerMs);
  }
}

std::string JackMIDI::displayNameOf(jack_port_t* port, const std::string& fullName) const {
  char* value = nullptr;
  char* type = nullptr;
  std::string name = fullName;
  if (mLibrary->jack_get_property(mLibrary->jack_port_uuid(port), kPrettyNameKey, &value, &type) ==
          0 &&
      value != nullptr && value[0] != '\0') {
    name = value;
  }
  mLibrary->jack_free(value);
  mLibrary->jack_free(type);
  return name;
}

void JackMIDI::rescan() {
  mRescanPending.store(false);
  if (mClient == nullptr) {
    return;
  }
  std::map<std::string, std::pair<MIDIEndpointRef, MIDIEndpointKind>> found;
  const char** names = mLibrary->jack_get_ports(mClient, nullptr, JACK_DEFAULT_MIDI_TYPE, 0);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    jack_port_t* port = mLibrary->jack_port_by_name(mClient, *name);
    if (port == nullptr || mLibrary->jack_port_is_mine(mClient, port) != 0) {
      continue;
    }
    // What another client puts out is a source to us.
    const bool isSource = (mLibrary->jack_port_flags(port) & JackPortIsOutput) != 0;
    const auto kind = isSource ? MIDIEndpointKind::source : MIDIEndpointKind::destination;
    // One that is registered anew has lost its connections, also when it was gone
    // too briefly to be missed here.
    const bool isNew = !mEndpoints.contains(*name) || mRenewed.contains(*name);
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
  mLibrary->jack_free(names);
  mRenewed.clear();
  for (const auto& [name, endpoint] : mEndpoints) {
    if (!found.contains(name)) {
      mInside->endpointVanished(endpoint.first);
    }
  }
  mEndpoints = std::move(found);
}

void JackMIDI::portRegistered(jack_port_id_t id) {
  jack_port_t* port = mClient != nullptr ? mLibrary->jack_port_by_id(mClient, id) : nullptr;
  const char* name = port != nullptr ? mLibrary->jack_port_name(port) : nullptr;
  if (name != nullptr && name[0] != '\0') {
    mRenewed.insert(name);
  }
  requestRescan();  // from here, so that the look comes after the note
}

void JackMIDI::reportDropped(std::uint32_t session) {
  if (mClient == nullptr || session != mSession.load()) {
    return;  // the next server has reports of its own
  }
  for (const PortPtr& port : mKnown) {
    const std::uint64_t dropped = port->lane.dropped();
    if (dropped != port->droppedReported) {
      VELOR_LOG_WARNING("%" PRIu64 " MIDI packets came too late for %s",
                        dropped - port->droppedReported, port->name.c_str());
      port->droppedReported = dropped;
    }
  }
  mQueue.after(kReportInterval, [this, session] { reportDropped(session); });
}

// --- callbacks of the library ---

void JackMIDI::onShutdown(void* self) {
  static_cast<JackMIDI*>(self)->serverWent();
}
void JackMIDI::onInfoShutdown(jack_status_t, const char*, void* self) {
  static_cast<JackMIDI*>(self)->serverWent();
}
void JackMIDI::onPortRegistration(jack_port_id_t port, int registered, void* self) {
  auto* midi = static_cast<JackMIDI*>(self);
  if (registered != 0) {
    midi->mQueue.async([midi, port] { midi->portRegistered(port); });
  } else {
    midi->requestRescan();
  }
}
void JackMIDI::onPropertyChange(jack_uuid_t, const char*, jack_property_change_t, void* self) {
  static_cast<JackMIDI*>(self)->requestRescan();
}

// The library calls back on threads from which it can't be called, and before
// what it tells of has come to pass: a port that goes is still listed then.
void JackMIDI::requestRescan() {
  if (!mRescanPending.exchange(true)) {
    mQueue.after(kRescanDelay, [this] { rescan(); });
  }
}

void JackMIDI::serverWent() {
  mQueue.async([this, session = mSession.load()] {
    if (mClient == nullptr || session != mSession.load()) {
      return;  // told twice, or closed meanwhile
    }
    VELOR_LOG_WARNING("the MIDI server went away; it is taken up again when it returns");
    closeClient();
    mToldMissing = true;
    mQueue.after(kRetryInterval, [this] { tryOpen(); });
  });
}

int JackMIDI::onProcess(jack_nframes_t frames, void* self) {
  static_cast<JackMIDI*>(self)->process(frames);
  return 0;
}

void JackMIDI::process(jack_nframes_t frames) noexcept {
  mCycles.fetch_add(1);
  const host::RealtimeContext realtime;
  const JackLibrary& jack = *mLibrary;

  jack_nframes_t startFrame = 0;
  jack_time_t startUs = 0;
  jack_time_t nextUs = 0;
  float periodUs = 0;
  if (jack.jack_get_cycle_times(mClient, &startFrame, &startUs, &nextUs, &periodUs) == 0) {
    JackTimeBase::Reading reading;
    reading.frame = startFrame;
    reading.startUs = startUs;
    reading.nextUs = nextUs;
    reading.frames = frames;
    reading.sampleRate = jack.jack_get_sample_rate(mClient);
    reading.hostBefore = mHost.AudioGetCurrentHostTime();
    reading.serverNowUs = jack.jack_get_time();
    reading.hostAfter = mHost.AudioGetCurrentHostTime();
    const JackCycle& cycle = mTimeBase.advance(reading);

    for (const auto& entry : mActive) {
      Port* port = entry.load();
      if (port == nullptr) {
        continue;
      }
      void* buffer = jack.jack_port_get_buffer(port->port, frames);
      if (buffer == nullptr) {
        continue;
      }
      if (port->isOutput) {
        jack.jack_midi_clear_buffer(buffer);
        port->lane.process(realtime, cycle,
                           [&jack, buffer](std::uint32_t offset, const std::uint8_t* data,
                                           std::size_t length) noexcept {
                             jack_midi_data_t* place =
                                 jack.jack_midi_event_reserve(buffer, offset, length);
                             if (place == nullptr) {
                               return false;
                             }
                             std::copy_n(data, length, place);
                             return true;
                           });
        continue;
      }
      const std::uint32_t count = jack.jack_midi_get_event_count(buffer);
      for (std::uint32_t i = 0; i < count; ++i) {
        jack_midi_event_t event{};
        if (jack.jack_midi_event_get(&event, buffer, i) == 0) {
          mInside->deliver(realtime, port->receiver, port->sourceRefCon, cycle.timeAt(event.time),
                           event.buffer, event.size);
        }
      }
    }
  }
  mCycles.fetch_add(1);
}

}  // namespace velor::midi
