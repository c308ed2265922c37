// SPDX-License-Identifier: MIT
#include "platform/jack/JackClient.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "platform/host/Log.h"
#include "platform/host/Realtime.h"
#include "platform/jack/JackCallback.h"

namespace velor::jack {
namespace {

constexpr const char* kClientName = "Velor";
// Neither server reports that it has started.
constexpr std::uint64_t kRetryInterval = 500 * host::kNsPerMs;
// The libraries of both servers call back before the change that they report: a port that
// goes is still listed.
constexpr std::uint64_t kRescanDelay = 20 * host::kNsPerMs;
// jackd refuses to connect a port of a client that is not active, and does not report when
// it is.
constexpr std::uint64_t kReconnectDelay = 250 * host::kNsPerMs;
// One report for all xruns within it.
constexpr std::uint64_t kXrunDelay = 100 * host::kNsPerMs;
constexpr std::uint64_t kReportInterval = 5000 * host::kNsPerMs;
// Fits the limit of every server, also with a number after it.
constexpr std::size_t kLongestPortName = 200;
constexpr const char* kOrderKey = "http://jackaudio.org/metadata/order";

// Descriptors that jack_client_open takes while it looks for a server, and as many for other
// threads. The library ends the program when it finds none left in some places.
constexpr std::size_t kDescriptorsToOpen = 32;

void ignoreMessage(const char*) {}

bool areDescriptorsLeft() {
  std::array<int, kDescriptorsToOpen> taken;
  const auto end = std::find_if(taken.begin(), taken.end(), [](int& descriptor) {
    descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return descriptor < 0;
  });
  std::for_each(taken.begin(), end, [](int descriptor) { close(descriptor); });
  return end == taken.end();
}

}  // namespace

bool JackClient::available() {
  const auto paths = JackLibrary::paths();
  return std::any_of(paths.begin(), paths.end(),
                     [](const std::string& path) { return JackLibrary::load(path) != nullptr; });
}

JackClient::JackClient() : mHost(host::current()), mCycles(mHost), mConnections(mHost, mCycles) {}

JackClient::~JackClient() = default;

std::string JackClient::description() const {
  const std::lock_guard lock(mDescriptionMutex);
  return mDescription;
}

void JackClient::tell(bool connected, std::string description) {
  mConnected.store(connected);
  const std::lock_guard lock(mDescriptionMutex);
  mDescription = std::move(description);
}

void JackClient::tellConnected() {
  tell(true, std::string("JACK, client ") + mLibrary->jack_get_client_name(mClient) + ", " +
                 std::to_string(sampleRate()) + " Hz");
}

// --- participants, on mQueue ---

void JackClient::attach(JackParticipant& participant) {
  mQueue.assertCurrent();
  const auto place = std::find_if(mActive.begin(), mActive.end(), [](const auto& entry) {
    return entry.load(std::memory_order_relaxed) == nullptr;
  });
  if (place == mActive.end()) {
    VELOR_LOG_ERROR("too many services share the JACK client");
    return;
  }
  mParticipants.push_back(&participant);
  place->store(&participant);
  if (mClient == nullptr) {
    if (!mRetryPending) {  // there was none a moment ago
      tryOpen();
    }
    return;
  }
  participant.opened();
  participant.rescan({});
}

void JackClient::detach(JackParticipant& participant) {
  mQueue.assertCurrent();
  if (mParticipants.size() == 1 && mParticipants[0] == &participant) {
    // jackd sends the closing client a notification for each port that still has names. The
    // client no longer reads them, and after about 250 jackd hangs for all its clients.
    if (mClient != nullptr) {
      forgetNames();
    }
    closeClient();  // ends the process callback
  }
  for (auto& entry : mActive) {
    if (entry.load(std::memory_order_relaxed) == &participant) {
      entry.store(nullptr);
    }
  }
  std::erase(mParticipants, &participant);
  if (mClient != nullptr) {
    awaitCycles(1);  // no server's fault: a callback that runs now still has the participant
  }
}

// --- the server, on mQueue ---

void JackClient::tryOpen() {
  if (mParticipants.empty() || mClient != nullptr) {
    return;
  }
  if (!areDescriptorsLeft()) {
    if (!std::exchange(mToldShort, true)) {
      VELOR_LOG_WARNING(
          "too few file descriptors are left to connect to a JACK server; will retry");
    }
    retryLater();
    return;
  }
  mToldShort = false;
  for (const std::string& path : JackLibrary::paths()) {
    if (auto library = JackLibrary::load(path)) {
      openWith(std::move(library));
    }
    if (mClient != nullptr) {
      return;
    }
  }
  if (!std::exchange(mToldMissing, true)) {
    VELOR_LOG_WARNING("no JACK or PipeWire server; ports of other programs appear when one starts");
  }
  retryLater();
}

void JackClient::retryLater() {
  if (!std::exchange(mRetryPending, true)) {
    mQueue.after(kRetryInterval, [this] {
      mRetryPending = false;
      tryOpen();
    });
  }
}

void JackClient::openWith(std::shared_ptr<const JackLibrary> library) {
  library->jack_set_error_function(ignoreMessage);
  library->jack_set_info_function(ignoreMessage);
  jack_status_t status{};
  jack_client_t* client = library->jack_client_open(kClientName, JackNoStartServer, &status);
  if (client == nullptr) {
    return;
  }
  mLibrary = std::move(library);
  mClient = client;
  mConnections.open(mLibrary, mClient);
  mTimeBase.restart();
  ++mSession;

  // Whichever of the two the server calls; PipeWire knows only the first.
  mLibrary->jack_on_shutdown(mClient, &JackCallback<&JackClient::onShutdown>::call, this);
  mLibrary->jack_on_info_shutdown(mClient, &JackCallback<&JackClient::onInfoShutdown>::call, this);
  mLibrary->jack_set_process_callback(mClient, &JackCallback<&JackClient::onProcess>::call, this);
  mLibrary->jack_set_port_registration_callback(
      mClient, &JackCallback<&JackClient::onPortRegistration>::call, this);
  mLibrary->jack_set_port_connect_callback(mClient, &JackCallback<&JackClient::onPortConnect>::call,
                                           this);
  mLibrary->jack_set_graph_order_callback(mClient, &JackCallback<&JackClient::onGraphOrder>::call,
                                          this);
  mLibrary->jack_set_property_change_callback(
      mClient, &JackCallback<&JackClient::onPropertyChange>::call, this);
  mLibrary->jack_set_xrun_callback(mClient, &JackCallback<&JackClient::onXrun>::call, this);
  mXruns.store(0);
  mHeededXruns = 0;
  mSampleRate.store(mLibrary->jack_get_sample_rate(mClient));
  mPeriod.store(mLibrary->jack_get_buffer_size(mClient));
  if (mLibrary->jack_activate(mClient) != 0) {
    VELOR_LOG_WARNING("the JACK server refused to activate the client");
    closeClient();
    return;
  }
  mToldMissing = false;
  forgetNames();
  tellConnected();
  VELOR_LOG_INFO("connected to the JACK server as %s", mLibrary->jack_get_client_name(mClient));
  for (JackParticipant* participant : mParticipants) {
    participant->opened();
  }
  rescan();
  mQueue.after(kReportInterval, [this, session = mSession.load()] { report(session); });
}

void JackClient::closeClient() {
  if (mClient == nullptr) {
    return;
  }
  ++mSession;
  // First, since it ends the process callback. A dead server calls it no more, and waiting
  // for it once for each port would take seconds.
  mLibrary->jack_client_close(mClient);
  mClient = nullptr;
  for (JackPort* port : mPorts) {
    port->port = nullptr;
  }
  mConnections.close(mPorts);
  mPorts.clear();
  mCycles.noteClosed();
  mRenewed.clear();
  tell(false, "");
  for (JackParticipant* participant : mParticipants) {
    participant->closed();
  }
}

void JackClient::forgetNames() {
  for (const auto& [uuid, name] : std::exchange(mNamed, {})) {
    if (mLibrary->prettyName(uuid) == name) {
      mLibrary->jack_remove_property(mClient, uuid, kPrettyNameKey);
      mLibrary->jack_remove_property(mClient, uuid, kOrderKey);
    }
  }
}

void JackClient::registerPort(JackPort& port, int order) {
  if (mClient == nullptr || port.port != nullptr) {
    return;
  }
  mCycles.awaitForgotten();  // jackd reuses the place of a port too early
  const unsigned long flags = port.isOutput ? JackPortIsOutput : JackPortIsInput;
  // Names must be unique within the client and fit the server's limit.
  std::string name = port.name.substr(0, kLongestPortName);
  std::replace(name.begin(), name.end(), ':', '/');
  const std::size_t length = name.size();
  for (int copy = 2; copy < 100 && port.port == nullptr; ++copy) {
    port.port = mLibrary->jack_port_register(mClient, name.c_str(), port.type, flags, 0);
    name.replace(length, std::string::npos, " " + std::to_string(copy));
  }
  if (port.port == nullptr) {
    VELOR_LOG_ERROR("the JACK server refused the port %s", port.name.c_str());
    return;
  }
  mPorts.push_back(&port);
  mCycles.noteGraphChange();
  // A name for people; a server may have no place for it.
  const jack_uuid_t uuid = mLibrary->jack_port_uuid(port.port);
  mLibrary->jack_set_property(mClient, uuid, kPrettyNameKey, port.name.c_str(), "text/plain");
  mNamed[uuid] = port.name;
  mLibrary->jack_set_property(mClient, uuid, kOrderKey, std::to_string(order).c_str(),
                              "http://www.w3.org/2001/XMLSchema#int");
  if (!mConnections.portRegistered(port)) {
    reconnectSoon();
  }
}

void JackClient::unregisterPort(JackPort& port) {
  if (mClient == nullptr || port.port == nullptr) {
    return;
  }
  mCycles.awaitRest();  // jackd's library walks its ports while the graph changes
  mConnections.portGoes(port);
  mNamed.erase(mLibrary->jack_port_uuid(port.port));
  mLibrary->jack_port_unregister(mClient, port.port);
  mCycles.notePortWent();
  mCycles.noteGraphChange();
  port.port = nullptr;
  std::erase(mPorts, &port);
}

void JackClient::reconnectSoon() {
  if (!std::exchange(mReconnectPending, true)) {
    mQueue.after(kReconnectDelay, [this] {
      mReconnectPending = false;
      requestRescan();
    });
  }
}

void JackClient::rescan() {
  mRescanPending.store(false);
  if (mClient == nullptr) {
    return;
  }
  tellConnected();
  bool isRefused = false;
  for (JackPort* port : mPorts) {
    isRefused = !mConnections.restore(*port) || isRefused;
    mConnections.look(*port);
  }
  if (isRefused) {
    reconnectSoon();
  }
  const auto renewed = std::exchange(mRenewed, {});
  for (JackParticipant* participant : mParticipants) {
    participant->rescan(renewed);
  }
}

void JackClient::portRegistered(jack_port_id_t id) {
  jack_port_t* port = mClient != nullptr ? mLibrary->jack_port_by_id(mClient, id) : nullptr;
  const char* name = port != nullptr ? mLibrary->jack_port_name(port) : nullptr;
  if (name != nullptr && name[0] != '\0') {
    mRenewed.insert(name);
  }
  requestRescan();  // from here, so that the look comes after the note
}

void JackClient::report(std::uint32_t session) {
  if (mClient == nullptr || session != mSession.load()) {
    return;  // the next server has reports of its own
  }
  for (JackParticipant* participant : mParticipants) {
    participant->report();
  }
  mQueue.after(kReportInterval, [this, session] { report(session); });
}

void JackClient::xrunsChangedSoon() {
  if (!std::exchange(mXrunsPending, true)) {
    mQueue.after(kXrunDelay, [this] {
      mXrunsPending = false;
      for (JackParticipant* participant : mParticipants) {
        participant->xrunsChanged();
      }
    });
  }
}

// --- callbacks of the library ---

void JackClient::onShutdown(void* self) {
  static_cast<JackClient*>(self)->serverWent();
}
void JackClient::onInfoShutdown(jack_status_t, const char*, void* self) {
  static_cast<JackClient*>(self)->serverWent();
}
void JackClient::onPortRegistration(jack_port_id_t port, int registered, void* self) {
  auto* client = static_cast<JackClient*>(self);
  if (registered != 0) {
    client->mQueue.async([client, port] { client->portRegistered(port); });
  } else {
    client->requestRescan();
  }
}
void JackClient::onPortConnect(jack_port_id_t, jack_port_id_t, int, void* self) {
  static_cast<JackClient*>(self)->requestRescan();
}
int JackClient::onGraphOrder(void* self) {
  auto* client = static_cast<JackClient*>(self);
  client->mCycles.noteGraphChange();
  client->requestRescan();  // latencies follow it
  return 0;
}
// PipeWire calls this on its real-time thread.
int JackClient::onXrun(void* self) {
  ++static_cast<JackClient*>(self)->mXruns;
  return 0;
}
void JackClient::onPropertyChange(jack_uuid_t, const char*, jack_property_change_t, void* self) {
  static_cast<JackClient*>(self)->requestRescan();
}

// The library calls back on threads from which it can't be called.
void JackClient::requestRescan() {
  if (!mRescanPending.exchange(true)) {
    mQueue.after(kRescanDelay, [this] { rescan(); });
  }
}

void JackClient::serverWent() {
  mQueue.async([this, session = mSession.load()] {
    if (mClient == nullptr || session != mSession.load()) {
      return;  // reported twice, or closed meanwhile
    }
    VELOR_LOG_WARNING("lost the JACK server; will reconnect");
    closeClient();
    mToldMissing = true;
    retryLater();
  });
}

int JackClient::onProcess(jack_nframes_t frames, void* self) {
  static_cast<JackClient*>(self)->process(frames);
  return 0;
}

void JackClient::process(jack_nframes_t frames) noexcept {
  mCycles.begin();
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
    heed(realtime, cycle);
    for (const auto& entry : mActive) {
      if (JackParticipant* participant = entry.load()) {
        participant->process(realtime, cycle);
      }
    }
  }
  mCycles.end();
}

// A live server may change its rate and period. Its callbacks for that may come before
// or after the first such cycle.
void JackClient::heed(const host::RealtimeContext& realtime, const JackCycle& cycle) noexcept {
  const std::uint32_t xruns = mXruns.load(std::memory_order_relaxed);
  if (xruns != mHeededXruns && mQueue.async(realtime, [this] { xrunsChangedSoon(); })) {
    mHeededXruns = xruns;
  }
  const auto sampleRate = static_cast<std::uint32_t>(cycle.nominalRate);
  if (sampleRate == mSampleRate.load(std::memory_order_relaxed) &&
      cycle.frames == mPeriod.load(std::memory_order_relaxed)) {
    return;
  }
  // If there is no place for the job, the next cycle tries again.
  if (mQueue.async(realtime, [this] { requestRescan(); })) {
    mSampleRate.store(sampleRate);
    mPeriod.store(cycle.frames);
  }
}

}  // namespace velor::jack
