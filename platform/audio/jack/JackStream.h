// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/jack/JackLibrary.h"
#include "platform/jack/JackPort.h"
#include "platform/jack/JackTimeBase.h"

namespace velor::audio {

/// One direction of a device, as long as somebody holds it and a little longer: our
/// ports, and who is called with their buffers.
class JackStream {
 public:
  JackStream(std::string uid, AudioDirection direction, std::string name, AudioCycleProc proc,
             void* refCon);

  // --- on the client's queue ---

  const std::string& uid() const noexcept { return mUid; }
  const std::string& name() const noexcept { return mName; }
  AudioDirection direction() const noexcept { return mDirection; }
  std::span<const std::unique_ptr<jack::JackPort>> ports() const noexcept {
    return {mPorts.data(), mUsed};
  }
  bool isConnectedTo(const std::vector<std::string>& peers) const;

  /// One port for each. Those before are not registered any more; they are taken
  /// again, as they know what was connected to them.
  void setPeers(const std::vector<std::string>& peers);
  /// Takes over the ports as they are registered. Out of service only.
  void prepare() noexcept;
  /// Frames between the connector and the program; while in service, too.
  void setLatency(std::uint32_t frames) noexcept { mLatency.store(frames); }

  /// Whether it is called in the cycles. While it is not, its outputs are silent.
  void setSounding(bool sounding) noexcept { mSounding.store(sounding); }

  /// Calls somebody else from now on. Not while it sounds.
  void setProc(AudioCycleProc proc, void* refCon) noexcept {
    mProc = proc;
    mRefCon = refCon;
  }

  bool inService = false;
  bool isHeld = true;

  // --- in the process callback, in service ---

  void process(const host::RealtimeContext& realtime, const jack::JackLibrary& library,
               const jack::JackCycle& cycle) noexcept;

 private:
  const std::string mUid;
  const AudioDirection mDirection;
  const std::string mName;
  AudioCycleProc mProc;
  void* mRefCon;
  std::vector<std::unique_ptr<jack::JackPort>> mPorts;  // the first mUsed, and spare ones
  std::size_t mUsed = 0;
  std::atomic<std::uint32_t> mLatency{0};
  std::atomic<bool> mSounding{false};

  // The process callback's own while in service.
  struct {
    std::array<jack_port_t*, kMaxChannels> ports{};
    std::array<float*, kMaxChannels> buffers{};
    std::uint32_t count = 0;
  } rt;
};

}  // namespace velor::audio
