// SPDX-License-Identifier: MIT
#include "platform/audio/jack/JackStream.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace velor::audio {

JackStream::JackStream(std::string uid, AudioStreamRequest request)
    : mUid(std::move(uid)), mRequest(std::move(request)) {
  mRequest.channels = std::min(mRequest.channels, kMaxChannels);
}

bool JackStream::isConnectedTo(const std::vector<std::string>& devicePorts) const {
  return std::equal(mChannels.begin(), mChannels.end(), devicePorts.begin(), devicePorts.end(),
                    [](const Channel* channel, const std::string& devicePort) {
                      return channel->devicePort == devicePort;
                    });
}

JackStream::Ports JackStream::ports() const {
  Ports ports;
  for (Channel* channel : mChannels) {
    ports.push_back(&channel->port);
  }
  return ports;
}

JackStream::Ports JackStream::allPorts() const {
  Ports ports;
  for (const auto& channel : mMade) {
    ports.push_back(&channel->port);
  }
  return ports;
}

// The first that is not needed, or a new one.
JackStream::Channel& JackStream::spareChannel(const std::vector<Channel*>& taken) {
  for (const auto& channel : mMade) {
    if (std::find(taken.begin(), taken.end(), channel.get()) == taken.end()) {
      return *channel;
    }
  }
  auto made = std::make_unique<Channel>();
  made->port.isOutput = direction() == AudioDirection::output;
  made->port.name = (name().empty() ? "audio" : name()) + (made->port.isOutput ? " out_" : " in_") +
                    std::to_string(mMade.size() + 1);
  mMade.push_back(std::move(made));
  return *mMade.back();
}

void JackStream::setDevicePorts(const std::vector<std::string>& devicePorts) {
  std::vector<Channel*> channels(devicePorts.size(), nullptr);
  for (std::size_t i = 0; i < channels.size(); ++i) {
    const auto same = std::find_if(mMade.begin(), mMade.end(), [&](const auto& channel) {
      return channel->devicePort == devicePorts[i];
    });
    channels[i] = same != mMade.end() ? same->get() : nullptr;
  }
  for (std::size_t i = 0; i < channels.size(); ++i) {
    if (channels[i] == nullptr) {
      channels[i] = &spareChannel(channels);
      channels[i]->devicePort = devicePorts[i];
    }
  }
  mChannels = std::move(channels);
  for (std::size_t i = 0; i < mChannels.size(); ++i) {
    assign(*mChannels[i], i);
  }
}

// By the name of the device's port, or for one that is met for the first time by its place.
void JackStream::assign(Channel& channel, std::size_t place) {
  auto known = mKnown.find(channel.devicePort);
  if (known == mKnown.end()) {
    const bool isClaimed = place >= mUnclaimed && place < mRequest.map.size();
    known = mKnown.emplace(channel.devicePort, isClaimed ? mRequest.map[place] : -1).first;
    mUnclaimed = std::max(mUnclaimed, place + 1);
  }
  channel.program = known->second;
  channel.port.peer = channel.isMapped(mRequest.channels) ? channel.devicePort : "";
}

JackStream::Ports JackStream::setChannelMap(const AudioChannelMap& map) {
  if (map == channelMap()) {
    return {};  // and what is known of ports that went stays
  }
  mRequest.map = map;
  mKnown.clear();
  mUnclaimed = 0;
  Ports unmapped;
  for (std::size_t i = 0; i < mChannels.size(); ++i) {
    Channel& channel = *mChannels[i];
    const std::string before = channel.port.peer;
    assign(channel, i);
    if (!before.empty() && channel.port.peer.empty()) {
      channel.port.peer = before;  // for whoever disconnects it
      unmapped.push_back(&channel.port);
    }
  }
  return unmapped;
}

AudioChannelMap JackStream::channelMap() const {
  AudioChannelMap map;
  for (const Channel* channel : mChannels) {
    map.push_back(channel->program);
  }
  if (mUnclaimed < mRequest.map.size()) {
    map.resize(std::max(map.size(), mUnclaimed), -1);
    map.insert(map.end(), mRequest.map.begin() + static_cast<std::ptrdiff_t>(map.size()),
               mRequest.map.end());
  }
  return map;
}

void JackStream::setProc(const AudioStreamRequest& request) noexcept {
  mRequest.channels = std::min(request.channels, kMaxChannels);
  mRequest.proc = request.proc;
  mRequest.refCon = request.refCon;
}

void JackStream::publish() noexcept {
  Routes routes;
  routes.count = static_cast<std::uint32_t>(std::min<std::size_t>(mChannels.size(), kMaxChannels));
  routes.channels = mRequest.channels;
  for (std::uint32_t i = 0; i < routes.count; ++i) {
    routes.ports[i] = mChannels[i]->port.port;
    routes.map[i] = mChannels[i]->program;
  }
  mRoutes.store(routes);
}

void JackStream::process(const host::RealtimeContext& realtime, const jack::JackLibrary& library,
                         const jack::JackCycle& cycle) noexcept {
  const Routes& routes = mRoutes.load();
  const bool isOutput = direction() == AudioDirection::output;
  for (std::uint32_t i = 0; i < routes.count; ++i) {
    rt.buffers[i] =
        routes.ports[i] == nullptr
            ? nullptr
            : static_cast<float*>(library.jack_port_get_buffer(routes.ports[i], cycle.frames));
    if (isOutput && rt.buffers[i] != nullptr) {
      std::fill_n(rt.buffers[i], cycle.frames, 0.0F);
    }
  }
  if (!mSounding.load()) {
    return;
  }
  AudioTimeStamp time;
  time.mSampleTime = static_cast<double>(cycle.startFrame);
  time.mHostTime = cycle.startTime;
  time.mFlags = kAudioTimeStampSampleHostTimeValid;
  if (!isOutput) {
    const double latency = mLatency.load(std::memory_order_relaxed);
    time.mHostTime -= static_cast<std::uint64_t>(std::llround(latency * 1e9 / cycle.nominalRate));
  }
  const std::span<float* const> buffers(rt.buffers.data(), routes.count);
  const std::span<const std::int32_t> map(routes.map.data(), routes.count);
  mRequest.proc(realtime, mRequest.refCon, time, cycle.frames,
                rt.routing.program(buffers, map, routes.channels));
  if (isOutput) {
    rt.routing.spread(buffers, map, routes.channels, cycle.frames);
  }
}

}  // namespace velor::audio
