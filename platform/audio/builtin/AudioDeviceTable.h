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
#include "platform/host/PriorityMutex.h"

namespace velor::audio {

/// What became of a device that was known already.
struct AudioDeviceChange {
  bool presence = false;    ///< went, or came back
  bool sampleRate = false;  ///< the nominal rate
  bool channels = false;    ///< of either direction
};

/// The devices of all back ends with their streams, properties and listeners. The
/// first back end that has a device fit to be the default one gives it.
class AudioDeviceTable final : private AudioInside {
 public:
  /// Devices that the process can get to know in its life.
  static constexpr std::uint32_t kDevices = 1000;

  /// Called without a lock, on the thread on which the back end told it.
  using ChangeHandler = std::function<void(AudioObjectID device, const AudioDeviceChange& change)>;

  /// `outsides` in order of preference; they start and stop with the table.
  AudioDeviceTable(std::vector<std::unique_ptr<AudioOutside>> outsides, ChangeHandler handler);
  ~AudioDeviceTable() override;
  AudioDeviceTable(const AudioDeviceTable&) = delete;
  AudioDeviceTable& operator=(const AudioDeviceTable&) = delete;

  // As the service's operations of the same kind.
  OSStatus getNumber(AudioObjectID object, const AudioObjectPropertyAddress& address,
                     const std::string& uid, std::uint32_t* value);
  OSStatus getRate(AudioObjectID object, const AudioObjectPropertyAddress& address, double* value);
  OSStatus getText(AudioObjectID object, const AudioObjectPropertyAddress& address,
                   std::string* value);
  OSStatus getList(AudioObjectID object, const AudioObjectPropertyAddress& address,
                   std::vector<std::uint32_t>* value);
  OSStatus addListener(AudioObjectID object, const AudioObjectPropertyAddress& address,
                       AudioObjectPropertyListenerProc proc, void* refCon);
  OSStatus removeListener(AudioObjectID object, const AudioObjectPropertyAddress& address,
                          AudioObjectPropertyListenerProc proc, void* refCon);
  /// Realtime-safe: yes.
  OSStatus translateTime(AudioObjectID device, const AudioTimeStamp& in,
                         AudioTimeStamp& out) const noexcept;

  /// 0 when there is none.
  AudioObjectID defaultDevice(AudioDirection direction);
  bool isPresent(AudioObjectID device);
  /// What a device is, or was when it went; none for one that never was.
  std::optional<AudioDeviceDescription> description(AudioObjectID device);

  /// Samples; of the direction that a program means when it names none.
  static std::uint32_t latencyInScope(const AudioDeviceDescription& device,
                                      AudioObjectPropertyScope scope);

  // The back end's, and without the table's lock.
  std::unique_ptr<AudioDeviceStream> open(AudioObjectID device, const AudioStreamRequest& request);
  void requestBufferFrames(AudioObjectID device, std::uint32_t frames);

  /// Of the first back end that carries something of the outside.
  std::string serverDescription();

 private:
  struct Device {
    std::size_t outside = 0;
    bool present = false;
    AudioDeviceDescription description;
  };
  struct Listener {
    AudioObjectPropertySelector selector;
    AudioObjectPropertyListenerProc proc;
    void* refCon;
    bool operator==(const Listener&) const = default;
  };
  struct Defaults {
    AudioObjectID input;
    AudioObjectID output;
  };

  AudioObjectID deviceAppeared(AudioOutside& from, const AudioDeviceDescription& device) override;
  void deviceVanished(AudioObjectID device) override;

  // All below under mMutex.
  Device* find(AudioObjectID device);
  Device* findPresent(AudioObjectID device);
  const AudioDeviceDescription::Stream* findStream(AudioObjectID stream);
  // Of those that are there, the one of the first back end that has one.
  template <class Predicate>
  AudioObjectID preferred(Predicate&& isWanted) const;
  AudioObjectID defaultOf(AudioDirection direction) const;
  Defaults defaults() const;
  std::vector<AudioObjectID> presentDevices() const;
  void notifyOfChange(const Defaults& before, bool listChanged);
  void notify(AudioObjectPropertySelector selector);

  AudioOutside* outsideOf(AudioObjectID device) const noexcept;

  host::PriorityMutex mMutex;
  std::vector<Device> mDevices;  // the id is the index and kFirstDevice
  std::vector<Listener> mListeners;
  // The same devices' back ends, for those who must not wait for the lock.
  std::array<std::atomic<AudioOutside*>, kDevices> mOutsideOf{};
  const std::vector<std::unique_ptr<AudioOutside>> mOutsides;
  const ChangeHandler mChangeHandler;
  // Jobs on the main queue hold it weakly: they may come after the table's end.
  std::shared_ptr<AudioDeviceTable*> mSelf;
};

}  // namespace velor::audio
