// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Velor/devices/LTCReaderDeviceDelegate.h"
#include "Velor/views/VLAudioDeviceViewContoller.h"
#include "platform/host/Timer.h"

namespace Ui {
class VLLTCReaderViewController;
}

namespace velor {

class VLLTCReaderDevice;

/// The panel of an LTC reader: the time that comes in, or that it freewheels through, its
/// format and speed, its user bits. Queue: main.
class VLLTCReaderViewController final : public VLAudioDeviceViewContoller,
                                        public LTCReaderDeviceDelegate {
  Q_DECLARE_TR_FUNCTIONS(velor::VLLTCReaderViewController)

 public:
  /// Becomes a delegate of the device, and holds it weakly: it goes when it is removed.
  VLLTCReaderViewController(const std::shared_ptr<VLLTCReaderDevice>& device, VLPerform perform);
  ~VLLTCReaderViewController() override;

  void setInputTimecode(const SMPTETime& time) override;
  void changedUserbits(std::uint32_t userbits) override;
  void changedCurrentSpeed(double speed) override;
  void mtcDidChangeState(VLMTCState state) override;
  void stopFreewheeling();

 private:
  AudioDevices audioDevices() const override;
  std::vector<std::string> channelNames() const override;
  audio::AudioObjectID deviceId() const override;
  void setDeviceId(audio::AudioObjectID deviceId) override;
  std::string chosenDeviceUID() const override;
  std::optional<std::uint32_t> channel() const override;
  void setChannel(std::uint32_t channel) override;

  void connectControls();
  void updateFrString();
  void startTimer();
  void refreshTime();
  void commitFreewheelTime(const QString& text);
  void showSettings();

  const std::unique_ptr<Ui::VLLTCReaderViewController> mForm;
  const std::weak_ptr<VLLTCReaderDevice> mReaderDevice;
  double mSpeed = 0;                    // frames a second
  std::unique_ptr<host::Timer> mTimer;  // while it freewheels
  const host::WeakSelf<VLLTCReaderViewController> mSelf{this};
};

}  // namespace velor
