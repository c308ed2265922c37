// SPDX-License-Identifier: MIT
#include "platform/audio/jack/JackAudio.h"

#include <algorithm>
#include <utility>

#include "platform/host/Log.h"

namespace velor::audio {
namespace {

// Between a stop and the start that follows it at once, on a busy machine.
constexpr std::uint64_t kRest = 250'000'000;  // ns

bool isSame(const AudioDeviceDescription& a, const AudioDeviceDescription& b) {
  return a.sampleRate == b.sampleRate && a.bufferFrames == b.bufferFrames && a.input == b.input &&
         a.output == b.output;
}

}  // namespace

// Held by whoever opened the stream.
class JackAudio::Handle final : public AudioDeviceStream {
 public:
  Handle(JackAudio& audio, std::shared_ptr<JackStream> stream)
      : mAudio(audio), mStream(std::move(stream)) {}
  ~Handle() override {
    mAudio.mQueue.sync([this] { mAudio.rest(*mStream); });
    // Once the stream has gone the audio may have, too.
    mAudio.mQueue.after(kRest, [audio = &mAudio, weak = std::weak_ptr(mStream)] {
      if (const auto stream = weak.lock(); stream != nullptr && !stream->isHeld) {
        audio->remove(stream);
      }
    });
  }
  void setChannelMap(const AudioChannelMap& map) override {
    mAudio.mQueue.sync([&] { mAudio.setChannelMap(*mStream, map); });
  }
  AudioChannelMap channelMap() const override {
    return mAudio.mQueue.sync([this] { return mStream->channelMap(); });
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

 private:
  JackAudio& mAudio;
  const std::shared_ptr<JackStream> mStream;
};

JackAudio::JackAudio(std::shared_ptr<jack::JackClient> client)
    : mJack(std::move(client)), mQueue(mJack->queue()) {}

JackAudio::~JackAudio() {
  stop();
}

void JackAudio::start(AudioInside& inside) {
  mInside = &inside;
  mQueue.sync([this] { mJack->attach(*this); });
}

void JackAudio::stop() {
  if (mInside == nullptr) {
    return;
  }
  mQueue.sync([this] {
    for (const auto& stream : std::vector(mStreams)) {
      remove(stream);
    }
    mJack->detach(*this);
  });
  mInside = nullptr;
}

std::unique_ptr<AudioDeviceStream> JackAudio::open(AudioObjectID device,
                                                   const AudioStreamRequest& request) {
  const auto stream = mQueue.sync([&]() -> std::shared_ptr<JackStream> {
    const auto it = std::find_if(mDevices.begin(), mDevices.end(),
                                 [device](const auto& entry) { return entry.second.id == device; });
    if (it == mDevices.end() || it->second.ports(request.direction).empty()) {
      return nullptr;
    }
    if (auto rested = takeOverRested(it->second, request)) {
      rested->setProc(request);
      setChannelMap(*rested, request.map);
      rested->setSounding(true);
      return rested;
    }
    auto made = std::make_shared<JackStream>(it->first, request);
    if (!putInService(*made, it->second)) {
      return nullptr;
    }
    mStreams.push_back(made);
    return made;
  });
  return stream == nullptr ? nullptr : std::make_unique<Handle>(*this, stream);
}

OSStatus JackAudio::translateTime(AudioObjectID device, const AudioTimeStamp& in,
                                  AudioTimeStamp& out) noexcept {
  const OSStatus status = mClock.translate(in, out);
  if (status == kAudioHardwareNotRunningError) {
    return status;
  }
  const bool isPresent = device != kAudioObjectUnknown &&
                         std::any_of(mPresent.begin(), mPresent.end(), [device](const auto& entry) {
                           return entry.load(std::memory_order_relaxed) == device;
                         });
  return isPresent ? status : kAudioHardwareBadDeviceError;
}

// --- devices, on mQueue ---

void JackAudio::closed() {
  for (auto& entry : mActive) {
    entry.store(nullptr);
  }
  for (const auto& stream : mStreams) {
    stream->inService = false;
    stream->setSounding(false);
  }
  mClock.stop();
  announce({});
  announceServer();
}

void JackAudio::addPort(Devices& devices, const std::string& fullName, jack_port_t* port) const {
  const jack::JackLibrary& library = mJack->library();
  const auto flags = static_cast<unsigned long>(library.jack_port_flags(port));
  const std::size_t colon = fullName.find(':');
  const bool isPhysical = (flags & JackPortIsPhysical) != 0;
  // A client's outputs are our inputs.
  const bool isInput = (flags & JackPortIsOutput) != 0;
  // PipeWire gives each sink outputs that repeat what is played there.
  if (colon == std::string::npos ||
      (isInput && !isPhysical && fullName.compare(colon + 1, 8, "monitor_") == 0)) {
    return;
  }
  Device& device = devices[fullName.substr(0, colon)];
  auto& ports = isInput ? device.inputPorts : device.outputPorts;
  if (ports.size() == kMaxChannels) {
    return;
  }
  ports.push_back(fullName);

  auto& side = isInput ? device.description.input : device.description.output;
  side.streams.push_back({fullName.substr(colon + 1), 1});
  side.isDefault = side.isDefault || isPhysical;
  jack_latency_range_t range{};
  library.jack_port_get_latency_range(port, isInput ? JackCaptureLatency : JackPlaybackLatency,
                                      &range);
  side.latency = std::max(side.latency, range.max);
}

JackAudio::Devices JackAudio::lookForDevices() const {
  const jack::JackLibrary& library = mJack->library();
  jack_client_t* client = mJack->client();
  Devices devices;
  const char** names = library.jack_get_ports(client, nullptr, JACK_DEFAULT_AUDIO_TYPE, 0);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    jack_port_t* port = library.jack_port_by_name(client, *name);
    if (port != nullptr && library.jack_port_is_mine(client, port) == 0) {
      addPort(devices, *name, port);
    }
  }
  library.jack_free(names);
  for (auto& [uid, device] : devices) {
    device.description.uid = uid;
    device.description.name = uid;
    device.description.sampleRate = mJack->sampleRate();
    device.description.bufferFrames = mJack->period();
  }
  return devices;
}

void JackAudio::announce(Devices found) {
  for (const auto& [uid, device] : mDevices) {
    if (!found.contains(uid)) {
      setPresent(device.id, false);
      mInside->deviceVanished(device.id);
    }
  }
  for (auto& [uid, device] : found) {
    const auto known = mDevices.find(uid);
    if (known != mDevices.end() && isSame(known->second.description, device.description)) {
      device.id = known->second.id;
      continue;
    }
    device.id = mInside->deviceAppeared(*this, device.description);
    if (known == mDevices.end()) {
      setPresent(device.id, true);
    }
  }
  mDevices = std::move(found);
}

std::optional<AudioServerStatus> JackAudio::serverStatus() {
  if (!mJack->isConnected()) {
    return std::nullopt;
  }
  return AudioServerStatus{static_cast<double>(mJack->sampleRate()), mJack->period(),
                           mJack->xruns()};
}

void JackAudio::announceServer() {
  const auto status = serverStatus();
  if (std::exchange(mAnnounced, status) != status) {
    mInside->serverChanged();
  }
}

void JackAudio::setPresent(AudioObjectID device, bool present) {
  const auto place = std::find_if(mPresent.begin(), mPresent.end(), [&](const auto& entry) {
    return entry.load() == (present ? kAudioObjectUnknown : device);
  });
  if (place != mPresent.end() && device != kAudioObjectUnknown) {
    place->store(present ? device : kAudioObjectUnknown);
  }
}

void JackAudio::rescan(const std::set<std::string>& renewed) {
  announce(lookForDevices());
  announceServer();
  for (const auto& stream : mStreams) {
    const auto it = mDevices.find(stream->uid());
    if (it == mDevices.end() || it->second.ports(stream->direction()).empty()) {
      close(*stream);
      continue;
    }
    const Device& device = it->second;
    if (!stream->inService || !stream->isConnectedTo(device.ports(stream->direction()))) {
      if (stream->isHeld) {
        putInService(*stream, device);
      }
      continue;
    }
    stream->setLatency(device.description.side(stream->direction()).latency);
    for (jack::JackPort* port : stream->ports()) {
      // A port that is registered again has lost its connections.
      if (renewed.contains(port->peer)) {
        mJack->connectPeer(*port);
      }
    }
  }
}

// --- streams, on mQueue ---

// Follows the device's ports when it is in service already: what stays is not touched.
bool JackAudio::putInService(JackStream& stream, const Device& device) {
  stream.setDevicePorts(device.ports(stream.direction()));
  const JackStream::Ports ports = stream.ports();
  int order = 0;
  for (jack::JackPort* port : ports) {
    mJack->registerPort(*port, order++);
  }
  const bool isWhole = std::all_of(
      ports.begin(), ports.end(), [](const jack::JackPort* port) { return port->port != nullptr; });
  const auto place = std::find_if(mActive.begin(), mActive.end(), [&](const auto& entry) {
    return entry.load(std::memory_order_relaxed) == (stream.inService ? &stream : nullptr);
  });
  if (place == mActive.end() || !isWhole) {
    VELOR_LOG_ERROR("no room for the audio ports to %s", device.description.name.c_str());
    close(stream);
    return false;
  }
  stream.setLatency(device.description.side(stream.direction()).latency);
  stream.publish();
  place->store(&stream);
  for (jack::JackPort* port : ports) {
    mJack->connectPeer(*port);
  }
  mJack->awaitCycles(2);  // so that all channels begin at once, and none is used that goes
  stream.inService = true;
  stream.setSounding(true);
  for (jack::JackPort* port : stream.allPorts()) {
    if (std::find(ports.begin(), ports.end(), port) == ports.end()) {
      mJack->unregisterPort(*port);
    }
  }
  return true;
}

void JackAudio::setChannelMap(JackStream& stream, const AudioChannelMap& map) {
  for (jack::JackPort* port : stream.setChannelMap(map)) {
    mJack->disconnectPeer(*port);
  }
  stream.publish();
  if (stream.inService) {
    for (jack::JackPort* port : stream.ports()) {
      mJack->connectPeer(*port);
    }
  }
}

// Its ports stay where they are, silent. No call comes any more when this returns.
void JackAudio::rest(JackStream& stream) {
  stream.isHeld = false;
  stream.setSounding(false);
  mJack->awaitCycles(0);
}

std::shared_ptr<JackStream> JackAudio::takeOverRested(const Device& device,
                                                      const AudioStreamRequest& request) {
  const auto found = std::find_if(mStreams.begin(), mStreams.end(), [&](const auto& stream) {
    return !stream->isHeld && stream->direction() == request.direction &&
           stream->name() == request.name;
  });
  if (found == mStreams.end()) {
    return nullptr;
  }
  const auto stream = *found;
  if (stream->uid() != device.description.uid || !stream->inService ||
      !stream->isConnectedTo(device.ports(request.direction))) {
    remove(stream);  // so that another one's ports can have its names
    return nullptr;
  }
  stream->isHeld = true;
  stream->setLatency(device.description.side(request.direction).latency);
  return stream;
}

void JackAudio::takeOutOfService(JackStream& stream) {
  if (!std::exchange(stream.inService, false)) {
    return;
  }
  // Buffers keep their last contents, and the ports go one by one.
  stream.setSounding(false);
  mJack->awaitCycles(1);
  for (auto& entry : mActive) {
    if (entry.load(std::memory_order_relaxed) == &stream) {
      entry.store(nullptr);
    }
  }
  mJack->awaitCycles(1);
}

void JackAudio::close(JackStream& stream) {
  takeOutOfService(stream);
  for (jack::JackPort* port : stream.allPorts()) {
    mJack->unregisterPort(*port);
  }
}

void JackAudio::remove(const std::shared_ptr<JackStream>& stream) {
  close(*stream);
  std::erase(mStreams, stream);
}

// --- the process callback ---

void JackAudio::process(const host::RealtimeContext& realtime,
                        const jack::JackCycle& cycle) noexcept {
  mClock.advance(cycle);
  for (const auto& entry : mActive) {
    if (JackStream* stream = entry.load()) {
      stream->process(realtime, mJack->library(), cycle);
    }
  }
}

}  // namespace velor::audio
