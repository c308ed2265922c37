// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/host/Host.h"
#include "platform/host/PriorityMutex.h"

namespace velor::audio {

/// What became of a device.
struct AudioDeviceChange {
  AudioObjectID device = kAudioObjectUnknown;
  bool presence = false;       ///< appeared, went, or came back
  bool sampleRate = false;     ///< another nominal rate
  bool channels = false;       ///< other channels of either direction
  bool defaultInput = false;   ///< another device is the default one
  bool defaultOutput = false;  ///< another device is the default one
};

/// Hears of changes. Queue: "velor.audio".
class AudioDeviceListener {
 public:
  virtual void deviceChanged(const AudioDeviceChange& change) = 0;
  /// Read AudioService::serverStatus again.
  virtual void serverChanged() {}

 protected:
  ~AudioDeviceListener() = default;
};

/// The devices of all back ends, streams of their samples, and translation between host
/// time and a device's count of samples. The first back end that has a device fit to be
/// the default one gives it.
///
/// A device that goes keeps its id, by its UID, for the day of its return; its streams
/// are silent meanwhile.
///
/// Any thread may call any operation, but a real-time callback only
/// `AudioDeviceTranslateTime`.
class AudioService final : private AudioInside {
 public:
  /// Devices that the process can get to know in its life.
  static constexpr std::uint32_t kDevices = 1000;

  /// `outsides` in order of preference; they start and stop with the service.
  explicit AudioService(std::vector<std::unique_ptr<AudioOutside>> outsides);
  ~AudioService() override;
  AudioService(const AudioService&) = delete;
  AudioService& operator=(const AudioService&) = delete;

  /// Those that are there, the default ones first.
  std::vector<AudioObjectID> devices() const;
  /// 0 when there is none.
  AudioObjectID defaultDevice(AudioDirection direction) const;
  /// 0 when none that is there has the UID.
  AudioObjectID deviceForUID(const std::string& uid) const;
  bool isPresent(AudioObjectID device) const;
  /// What a device is, or was when it went; none for one that never was.
  std::optional<AudioDeviceDescription> description(AudioObjectID device) const;

  /// Null when the device is not there or refuses.
  std::unique_ptr<AudioDeviceStream> open(AudioObjectID device, const AudioStreamRequest& request);
  /// What is granted is announced as a change of the device, or is nothing.
  void requestBufferFrames(AudioObjectID device, std::uint32_t frames);

  /// From the host time to the device's sample time, or the other way, whichever
  /// `in` has valid; both are valid in `out`. Fractions of samples are kept.
  /// kAudioHardwareNotRunningError while the device does not count,
  /// kAudioHardwareBadDeviceError when it is not there. Realtime-safe: yes.
  OSStatus AudioDeviceTranslateTime(AudioObjectID device, const AudioTimeStamp& in,
                                    AudioTimeStamp& out) const noexcept;
  /// Ticks of the host's clock a second.
  double AudioGetHostClockFrequency() const noexcept;

  void addListener(AudioDeviceListener& listener);
  /// It is not called any more when this returns, unless it is what calls.
  void removeListener(AudioDeviceListener& listener);
  /// The queue of the listeners.
  host::Queue& queue() noexcept { return mQueue; }

  /// The server that carries the audio of the outside now, in a few words for people.
  std::string serverDescription() const;
  /// Of the first back end that has a server. Listeners hear of changes.
  AudioServerStatus serverStatus() const;

 private:
  struct Device {
    std::size_t outside = 0;
    bool present = false;
    AudioDeviceDescription description;
  };
  struct Defaults {
    AudioObjectID input;
    AudioObjectID output;
  };

  AudioObjectID deviceAppeared(AudioOutside& from, const AudioDeviceDescription& device) override;
  void deviceVanished(AudioObjectID device) override;
  void serverChanged() override;

  // Under mMutex.
  const Device* find(AudioObjectID device) const;
  // Of those that are there, the one of the first back end that has one.
  template <class Predicate>
  AudioObjectID preferred(Predicate&& isWanted) const;
  AudioObjectID defaultOf(AudioDirection direction) const;
  Defaults defaults() const;
  void announce(AudioDeviceChange change, const Defaults& before);
  void callListeners(std::function<void(AudioDeviceListener&)> call);

  AudioOutside* outsideOf(AudioObjectID device) const noexcept;

  mutable host::PriorityMutex mMutex;
  std::vector<Device> mDevices;  // the id is the index and 1
  std::vector<AudioDeviceListener*> mListeners;
  // The same devices' back ends, for those who must not wait for the lock.
  std::array<std::atomic<AudioOutside*>, kDevices> mOutsideOf{};
  const std::vector<std::unique_ptr<AudioOutside>> mOutsides;
  // The last, so that its jobs find the others.
  host::Queue mQueue{"velor.audio"};
};

/// The service in force; the application chooses it once, a test for each case.
AudioService& service() noexcept;
void setService(AudioService* service) noexcept;

}  // namespace velor::audio
