// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVShared.h"
#include "kva/KAHALAudioDevice.h"
#include "kva/KAHALAudioObject.h"

namespace velor {

/// The current audio service as an object: the devices that are there now, the
/// default ones first.
///
/// Observable: "audioDevices", "deviceChannels" of any of them, "defaultInputDevice",
/// "defaultOutputDevice" and "serverStatus", reported on the main queue after each change.
class KAHALAudioSystem final : public KAHALAudioObject,
                               public KVObservable,
                               private audio::AudioDeviceListener {
 public:
  using Devices = std::vector<std::shared_ptr<KAHALAudioDevice>>;

  /// Made at first use, by the main thread, with a current service. Ends with
  /// KVSharedInstances::clear, on the main thread and before the service.
  static KAHALAudioSystem& defaultSystem();

  Devices audioDevices() const;
  Devices devicesWithInputs() const;
  Devices devicesWithOutputs() const;

  /// Null where no device that is there has the UID.
  std::shared_ptr<KAHALAudioDevice> audioDeviceForUID(const std::string& uid) const;
  /// Null where none has the id.
  std::shared_ptr<KAHALAudioDevice> audioDeviceWithObjectId(audio::AudioObjectID objectID) const;
  /// Null where there is none.
  std::shared_ptr<KAHALAudioDevice> defaultInputDevice() const;
  std::shared_ptr<KAHALAudioDevice> defaultOutputDevice() const;
  /// Rate, period and xruns of the server that carries the audio.
  audio::AudioServerStatus serverStatus() const { return audio::service().serverStatus(); }

 private:
  friend class KVShared<KAHALAudioSystem>;
  KAHALAudioSystem();
  ~KAHALAudioSystem() override;

  void deviceChanged(const audio::AudioDeviceChange& change) override;
  void serverChanged() override;
  void announce(std::vector<std::string_view> keys);
  Devices devicesWithChannels(audio::AudioDirection scope) const;

  // Jobs on the main queue hold it weakly: they may come after the end.
  const std::shared_ptr<KAHALAudioSystem*> mSelf = std::make_shared<KAHALAudioSystem*>(this);
};

}  // namespace velor
