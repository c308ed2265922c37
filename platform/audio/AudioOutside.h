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

/// What a back end tells of one device.
struct AudioDeviceDescription {
  struct Stream {
    std::string name;  ///< empty when it has none of its own
    std::uint32_t channels = 0;
    bool operator==(const Stream&) const = default;
  };
  struct Side {
    std::vector<Stream> streams;
    std::uint32_t latency = 0;  ///< samples between the program and the connector
    /// Fit to be the default device of its direction.
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
  std::uint32_t bufferFrames = 0;  ///< of a cycle, as it stands
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
/// `frames` long, and null where the map gives one no channel of the device. `time` has both
/// valid: the sample time of the first frame on the device's count, and its host time; for
/// input, the host time at which that frame came in at the connector. Outputs hold zeros
/// beforehand.
using AudioCycleProc = void (*)(const host::RealtimeContext& realtime, void* refCon,
                                const AudioTimeStamp& time, std::uint32_t frames,
                                std::span<float* const> channels) noexcept;

/// What a program wants of one direction of a device.
struct AudioStreamRequest {
  AudioDirection direction = AudioDirection::output;
  std::string name;            ///< for people; need not be unique
  std::uint32_t channels = 0;  ///< of the program, at most kMaxChannels
  AudioChannelMap map;
  AudioCycleProc proc = nullptr;
  void* refCon = nullptr;
};

/// Cycles that are being called; no more come when its destructor returns, which
/// waits for the one under way. When the device goes the stream stays, silent, and goes on
/// with the device's return. While channels of the device come and go, those that stay are
/// played and recorded without a gap.
class AudioDeviceStream {
 public:
  virtual ~AudioDeviceStream() = default;

  /// Replaces the map from the next cycle on.
  virtual void setChannelMap(const AudioChannelMap& map) = 0;
  /// By the device's channels as they are now: one that stays keeps the program's channel
  /// whatever its place, one that returns gets it back, and a new one has none. Channels
  /// that the map counts and the device never had follow.
  virtual AudioChannelMap channelMap() const = 0;
};

class AudioOutside;

/// What the service offers to the back ends behind it.
class AudioInside {
 public:
  virtual ~AudioInside() = default;

  /// A device is there, or is there with other properties. One of the same UID
  /// that was there before has the id that it had. Not from a real-time callback.
  virtual AudioObjectID deviceAppeared(AudioOutside& from,
                                       const AudioDeviceDescription& device) = 0;
  /// Gone until it appears again.
  virtual void deviceVanished(AudioObjectID device) = 0;
  /// A back end's serverStatus() may be another. Not from a real-time callback.
  virtual void serverChanged() = 0;
};

/// A back end: devices, and the way in and out of them. Its operations may wait;
/// the service calls them without its lock.
class AudioOutside {
 public:
  virtual ~AudioOutside() = default;

  /// Begins; devices that are there at once are announced before it returns.
  virtual void start(AudioInside& inside) = 0;
  /// Ends; nothing is announced after it. All streams have gone before.
  virtual void stop() = 0;

  /// Null when the device is not there or refuses.
  virtual std::unique_ptr<AudioDeviceStream> open(AudioObjectID device,
                                                  const AudioStreamRequest& request) = 0;

  /// As AudioDeviceTranslateTime. Realtime-safe: yes.
  virtual OSStatus translateTime(AudioObjectID device, const AudioTimeStamp& in,
                                 AudioTimeStamp& out) noexcept = 0;

  /// Asks for so many frames in a cycle; what is granted is told as a change of
  /// the device, or is nothing.
  virtual void requestBufferFrames(AudioObjectID device, std::uint32_t frames) = 0;

  /// In a few words for people; empty while it carries nothing of the outside.
  virtual std::string description() = 0;
  /// Empty while it looks for its server.
  virtual std::optional<AudioServerStatus> serverStatus() = 0;
};

}  // namespace velor::audio
