// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/AudioRouting.h"
#include "platform/audio/AudioTypes.h"

namespace velor::audio {

/// One device, as its back end describes it.
struct AudioDeviceDescription {
  struct Stream {
    std::string name;  ///< may be empty
    std::uint32_t channels = 0;
    bool operator==(const Stream&) const = default;
  };
  struct Side {
    std::vector<Stream> streams;
    std::uint32_t latency = 0;  ///< samples between the program and the connector
    /// It can be the default device of its direction.
    bool isDefault = false;
    bool operator==(const Side&) const = default;
  };

  /// Channels of a direction.
  std::uint32_t channels(AudioDirection direction) const noexcept {
    std::uint32_t count = 0;
    for (const Stream& stream : side(direction).streams) {
      count += stream.channels;
    }
    return std::min(count, kMaxChannels);
  }

  std::string uid;
  std::string name;
  double sampleRate = 0;           ///< nominal, frames a second
  std::uint32_t bufferFrames = 0;  ///< of a cycle, now
  Side input;
  Side output;

  const Side& side(AudioDirection direction) const noexcept {
    return direction == AudioDirection::input ? input : output;
  }
};

/// How the server of a back end runs, or the back end itself where it needs none.
struct AudioServerStatus {
  double sampleRate = 0;     ///< frames a second
  std::uint32_t period = 0;  ///< frames in a cycle
  std::uint32_t xruns = 0;   ///< cycles that came too late, since the server was found
  bool operator==(const AudioServerStatus&) const = default;
};

/// Called in each cycle of a device with the program's channels of one direction, each
/// `frames` long; a channel that the map gives no channel of the device is null. In `time`
/// both are valid: the sample time of the first frame on the device's count, and its host
/// time; for input, the host time at which that frame came in at the connector. Outputs
/// hold zeros at first.
using AudioCycleProc = void (*)(const host::RealtimeContext& realtime, void* refCon,
                                const AudioTimeStamp& time, std::uint32_t frames,
                                std::span<float* const> channels) noexcept;

/// A program's wish for one direction of a device.
struct AudioStreamRequest {
  AudioDirection direction = AudioDirection::output;
  std::string name;            ///< for people; need not be unique
  std::uint32_t channels = 0;  ///< of the program, at most kMaxChannels
  AudioChannelMap map;
  AudioCycleProc proc = nullptr;
  void* refCon = nullptr;
};

/// While it lives the device calls its cycles. The destructor waits for the current cycle;
/// none comes after it. When the device goes missing the stream stays, silent, and continues
/// when the device returns. While channels of the device come and go, the others are played
/// and recorded without a gap.
class AudioDeviceStream {
 public:
  virtual ~AudioDeviceStream() = default;

  /// Replaces the map from the next cycle on.
  virtual void setChannelMap(const AudioChannelMap& map) = 0;
  /// In the order of the device's current channels. A channel of the device keeps its
  /// program channel when its place changes and gets it back when it returns; a new one has
  /// none. Channels that the device never had, though the map counts them, come last.
  virtual AudioChannelMap channelMap() const = 0;
};

class AudioOutside;

/// The service, as its back ends see it.
class AudioInside {
 public:
  virtual ~AudioInside() = default;

  /// A device has appeared or has new properties. A device that returns keeps its id, by
  /// its UID. Not from a real-time callback.
  virtual AudioObjectID deviceAppeared(AudioOutside& from,
                                       const AudioDeviceDescription& device) = 0;
  /// The device is missing until it appears again.
  virtual void deviceVanished(AudioObjectID device) = 0;
  /// The serverStatus() of a back end may have changed. Not from a real-time callback.
  virtual void serverChanged() = 0;
};

/// A back end: devices and their streams. Its operations may wait; the service calls them
/// without its lock.
class AudioOutside {
 public:
  virtual ~AudioOutside() = default;

  /// Announces the devices that are there now before it returns.
  virtual void start(AudioInside& inside) = 0;
  /// Announces nothing more. No stream exists any more.
  virtual void stop() = 0;

  /// Null when the device is not there or refuses.
  virtual std::unique_ptr<AudioDeviceStream> open(AudioObjectID device,
                                                  const AudioStreamRequest& request) = 0;

  /// As AudioDeviceTranslateTime. Realtime-safe: yes.
  virtual OSStatus translateTime(AudioObjectID device, const AudioTimeStamp& in,
                                 AudioTimeStamp& out) noexcept = 0;

  /// Asks for so many frames in a cycle. A new length is announced as a change of the
  /// device; nothing happens when the device refuses.
  virtual void requestBufferFrames(AudioObjectID device, std::uint32_t frames) = 0;

  /// The server in a few words for people; empty without one.
  virtual std::string description() = 0;
  /// Empty while it looks for its server.
  virtual std::optional<AudioServerStatus> serverStatus() = 0;
};

}  // namespace velor::audio
