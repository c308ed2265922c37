// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/host/LatestValue.h"
#include "platform/jack/JackLibrary.h"
#include "platform/jack/JackPort.h"
#include "platform/jack/JackTimeBase.h"

namespace velor::audio {

/// One direction of a device, as long as somebody holds it and a moment longer: a port of
/// ours for each port of the device, and the function that gets their buffers. Ports that
/// the map gives a channel of the program have the device's port as their peer.
class JackStream {
 public:
  using Ports = std::vector<jack::JackPort*>;

  JackStream(std::string uid, AudioStreamRequest request);

  // --- on the client's queue ---

  const std::string& uid() const noexcept { return mUid; }
  const std::string& name() const noexcept { return mRequest.name; }
  AudioDirection direction() const noexcept { return mRequest.direction; }
  bool isConnectedTo(const std::vector<std::string>& devicePorts) const;

  /// In the order of the device's.
  Ports ports() const;
  /// Also those that no port of the device needs now.
  Ports allPorts() const;

  /// Sets the device's current ports, by their full names. A port of the device that stays
  /// keeps its port of ours. Registered ports that are not in `ports` then can go.
  void setDevicePorts(const std::vector<std::string>& devicePorts);
  /// Hands `ports` as they are registered to the process callback.
  void publish() noexcept;

  /// As AudioDeviceStream. Gives the ports that have lost their channel; they still have
  /// their peer.
  Ports setChannelMap(const AudioChannelMap& map);
  AudioChannelMap channelMap() const;

  /// Frames between the connector and the program; while in service, too.
  void setLatency(std::uint32_t frames) noexcept { mLatency.store(frames); }

  /// Whether the function is called; if not, outputs are silent.
  void setSounding(bool sounding) noexcept { mSounding.store(sounding); }

  /// Replaces the function. Not while it sounds.
  void setProc(const AudioStreamRequest& request) noexcept;

  bool inService = false;
  bool isHeld = true;

  // --- in the process callback, in service ---

  void process(const host::RealtimeContext& realtime, const jack::JackLibrary& library,
               const jack::JackCycle& cycle) noexcept;

 private:
  // A port of ours, for one of the device's.
  struct Channel {
    jack::JackPort port;
    std::string devicePort;
    std::int32_t program = -1;  // channel of the program

    bool isMapped(std::uint32_t channels) const noexcept {
      return static_cast<std::uint32_t>(program) < channels;
    }
  };
  struct Routes {
    std::uint32_t count = 0;
    std::uint32_t channels = 0;  // of the program
    std::array<jack_port_t*, kMaxChannels> ports{};
    std::array<std::int32_t, kMaxChannels> map{};
  };

  Channel& spareChannel(const std::vector<Channel*>& taken);
  void assign(Channel& channel, std::size_t place);

  const std::string mUid;
  AudioStreamRequest mRequest;
  std::vector<std::unique_ptr<Channel>> mMade;
  std::vector<Channel*> mChannels;             // in the order of the device's
  std::map<std::string, std::int32_t> mKnown;  // by the device's ports, also those that went
  std::size_t mUnclaimed = 0;  // from this place on the map counts channels that never were
  std::atomic<std::uint32_t> mLatency{0};
  std::atomic<bool> mSounding{false};
  host::LatestValue<Routes> mRoutes;

  // The process callback's own while in service.
  struct {
    std::array<float*, kMaxChannels> buffers{};
    AudioRouting routing;
  } rt;
};

}  // namespace velor::audio
