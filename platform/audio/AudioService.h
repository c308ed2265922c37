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

/// A change of one device.
struct AudioDeviceChange {
  AudioObjectID device = kAudioObjectUnknown;
  bool presence = false;       ///< appeared, went, or came back
  bool sampleRate = false;     ///< another nominal rate
  bool channels = false;       ///< other channels of either direction
  bool defaultInput = false;   ///< another device is the default one
  bool defaultOutput = false;  ///< another device is the default one
};

/// Gets changes of devices and of the server. Queue: "velor.audio".
class AudioDeviceListener {
 public:
  virtual void deviceChanged(const AudioDeviceChange& change) = 0;
  /// Read AudioService::serverStatus again.
  virtual void serverChanged() {}

 protected:
  ~AudioDeviceListener() = default;
};

/// The devices of all back ends, streams of their samples, and translation between host
/// time and a device's count of samples. The default device is that of the first back end
/// that has one.
///
/// A device that goes missing keeps its id, by its UID; its streams are silent until it
/// returns.
///
/// Any thread may call any operation; a real-time callback may only call
/// `AudioDeviceTranslateTime`.
class AudioService final : private AudioInside {
 public:
  /// Most devices that the process can see in its life.
  static constexpr std::uint32_t kDevices = 1000;

  /// `outsides` in order of preference; they start and stop with the service.
  explicit AudioService(std::vector<std::unique_ptr<AudioOutside>> outsides);
  ~AudioService() override;
  AudioService(const AudioService&) = delete;
  AudioService& operator=(const AudioService&) = delete;

  /// The devices that are there, the default ones first.
  std::vector<AudioObjectID> devices() const;
  /// 0 when there is none.
  AudioObjectID defaultDevice(AudioDirection direction) const;
  /// 0 when none that is there has the UID.
  AudioObjectID deviceForUID(const std::string& uid) const;
  bool isPresent(AudioObjectID device) const;
  /// Of a missing device, as it was last; none for an unknown id.
  std::optional<AudioDeviceDescription> description(AudioObjectID device) const;

  /// Null when the device is not there or refuses.
  std::unique_ptr<AudioDeviceStream> open(AudioObjectID device, const AudioStreamRequest& request);
  /// As AudioOutside::requestBufferFrames.
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
  /// It is not called after this returns, except by the call that it is in.
  void removeListener(AudioDeviceListener& listener);
  /// The queue of the listeners.
  host::Queue& queue() noexcept { return mQueue; }

  /// The audio server in a few words for people.
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
  // The back ends of mDevices, to be read without the lock.
  std::array<std::atomic<AudioOutside*>, kDevices> mOutsideOf{};
  const std::vector<std::unique_ptr<AudioOutside>> mOutsides;
  // The last, so that its jobs find the others.
  host::Queue mQueue{"velor.audio"};
};

/// The current service; the application chooses it once, a test for each case.
AudioService& service() noexcept;
void setService(AudioService* service) noexcept;

}  // namespace velor::audio
