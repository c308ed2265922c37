// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/audio/builtin/VirtualAudioDevice.h"

namespace velor::audio {

/// The back end that needs no server: virtual devices, at first "Velor Loopback",
/// which is the default one where nothing else is, and plays to itself.
class BuiltinAudio final : public AudioOutside {
 public:
  static VirtualAudioDevice::Parameters loopback();

  explicit BuiltinAudio(const std::vector<VirtualAudioDevice::Parameters>& devices = {loopback()});
  ~BuiltinAudio() override;

  /// In the order in which they were given.
  VirtualAudioDevice& device(std::size_t index = 0) { return *mDevices.at(index); }

  void start(AudioInside& inside) override;
  void stop() override;
  std::unique_ptr<AudioDeviceStream> open(AudioObjectID device,
                                          const AudioStreamRequest& request) override;
  OSStatus translateTime(AudioObjectID device, const AudioTimeStamp& in,
                         AudioTimeStamp& out) noexcept override;
  void requestBufferFrames(AudioObjectID device, std::uint32_t frames) override;
  std::string description() override { return {}; }
  /// Rate and period of the first device, xruns of all.
  std::optional<AudioServerStatus> serverStatus() override;

 private:
  VirtualAudioDevice* find(AudioObjectID device) const noexcept;

  std::vector<std::unique_ptr<VirtualAudioDevice>> mDevices;
};

}  // namespace velor::audio
