// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Velor/views/VLAudioDeviceViewContoller.h"

namespace Ui {
class VLGeneratorViewController;
}

namespace velor {

class KVLTCGenerator;
class VLLTCGeneratorDevice;

/// The panel of an LTC generator: the time that goes out, its rate, its level and its user
/// bits. Queue: main.
class VLGeneratorViewController final : public VLAudioDeviceViewContoller {
 public:
  /// Holds the device weakly: it goes when it is removed.
  VLGeneratorViewController(const std::shared_ptr<VLLTCGeneratorDevice>& device, VLPerform perform);
  ~VLGeneratorViewController() override;

 private:
  AudioDevices audioDevices() const override;
  std::vector<std::string> channelNames() const override;
  audio::AudioObjectID deviceId() const override;
  void setDeviceId(audio::AudioObjectID deviceId) override;
  std::string chosenDeviceUID() const override;
  std::optional<std::uint32_t> channel() const override;
  void setChannel(std::uint32_t channel) override;

  void connectControls();
  void showTime();
  void showRate();
  void showSettings();

  const std::unique_ptr<Ui::VLGeneratorViewController> mForm;
  const std::weak_ptr<KVLTCGenerator> mGenerator;
};

}  // namespace velor
