// SPDX-License-Identifier: MIT
#include "platform/audio/jack/JackStream.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace velor::audio {

JackStream::JackStream(std::string uid, AudioDirection direction, std::string name,
                       AudioCycleProc proc, void* refCon)
    : mUid(std::move(uid)),
      mDirection(direction),
      mName(std::move(name)),
      mProc(proc),
      mRefCon(refCon) {}

bool JackStream::isConnectedTo(const std::vector<std::string>& peers) const {
  return std::equal(ports().begin(), ports().end(), peers.begin(), peers.end(),
                    [](const auto& port, const std::string& peer) { return port->peer == peer; });
}

void JackStream::setPeers(const std::vector<std::string>& peers) {
  while (mPorts.size() < peers.size()) {
    auto port = std::make_unique<jack::JackPort>();
    port->isOutput = mDirection == AudioDirection::output;
    port->name = (mName.empty() ? "audio" : mName) + (port->isOutput ? " out_" : " in_") +
                 std::to_string(mPorts.size() + 1);
    mPorts.push_back(std::move(port));
  }
  mUsed = peers.size();
  for (std::size_t i = 0; i < mUsed; ++i) {
    mPorts[i]->peer = peers[i];
  }
}

void JackStream::prepare() noexcept {
  rt.count = static_cast<std::uint32_t>(std::min<std::size_t>(mUsed, kMaxChannels));
  for (std::uint32_t i = 0; i < rt.count; ++i) {
    rt.ports[i] = mPorts[i]->port;
  }
}

void JackStream::process(const host::RealtimeContext& realtime, const jack::JackLibrary& library,
                         const jack::JackCycle& cycle) noexcept {
  bool isWhole = true;
  for (std::uint32_t i = 0; i < rt.count; ++i) {
    rt.buffers[i] = static_cast<float*>(library.jack_port_get_buffer(rt.ports[i], cycle.frames));
    if (rt.buffers[i] == nullptr) {
      isWhole = false;
    } else if (mDirection == AudioDirection::output) {
      std::fill_n(rt.buffers[i], cycle.frames, 0.0F);
    }
  }
  if (!isWhole || !mSounding.load()) {
    return;
  }
  AudioTimeStamp time;
  time.mSampleTime = static_cast<double>(cycle.startFrame);
  time.mHostTime = cycle.startTime;
  time.mFlags = kAudioTimeStampSampleHostTimeValid;
  if (mDirection == AudioDirection::input) {
    const double latency = mLatency.load(std::memory_order_relaxed);
    time.mHostTime -= static_cast<std::uint64_t>(std::llround(latency * 1e9 / cycle.nominalRate));
  }
  mProc(realtime, mRefCon, time, cycle.frames,
        std::span<float* const>(rt.buffers.data(), rt.count));
}

}  // namespace velor::audio
