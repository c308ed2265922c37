// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/views/VLPanelController.h"
#include "Velor/views/VLPerform.h"
#include "kva/KAHALAudioSystem.h"
#include "platform/audio/AudioTypes.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLDevice;
class VLPopupButton;

/// The panel of a device that reads or plays LTC: the choice of the audio device and of one
/// of its channels, which follow the system also while they are open. Queue: main, to which
/// it brings the changes that it observes.
class VLAudioDeviceViewContoller : public VLPanelController {
  Q_DECLARE_TR_FUNCTIONS(velor::VLAudioDeviceViewContoller)

 public:
  ~VLAudioDeviceViewContoller() override;
  VLAudioDeviceViewContoller(const VLAudioDeviceViewContoller&) = delete;
  VLAudioDeviceViewContoller& operator=(const VLAudioDeviceViewContoller&) = delete;

  QWidget* view() override { return &mView; }
  QSize minSize() const override { return {276, 159}; }
  QSize maxSize() const override { return minSize(); }
  bool resizeable() const override { return false; }
  QString viewControllerTitle() const override { return mTitle; }
  QString frameSaveName() const override { return mTitle; }

 protected:
  using AudioDevices = KAHALAudioSystem::Devices;

  VLAudioDeviceViewContoller(const VLDevice& device, VLPerform perform);

  virtual AudioDevices audioDevices() const = 0;
  virtual std::vector<std::string> channelNames() const = 0;
  /// The audio device in use; 0 for none.
  virtual audio::AudioObjectID deviceId() const = 0;
  virtual void setDeviceId(audio::AudioObjectID deviceId) = 0;
  /// The UID of the audio device that was chosen, which may be missing; empty if none was.
  virtual std::string chosenDeviceUID() const = 0;
  /// From 0; none, or one that no device has, selects none.
  virtual std::optional<std::uint32_t> channel() const = 0;
  virtual void setChannel(std::uint32_t channel) = 0;

  /// Once the form stands. `audioObjectIDObserveredObject` has the properties "audioObjectId"
  /// and `channelKey`.
  void awakeFromNib(VLPopupButton& devicePopUpButton, VLPopupButton& channelPopUpButton,
                    KVObservable& audioObjectIDObserveredObject, std::string_view channelKey);
  /// Shows the value again after each change of the property, on the main queue.
  void observe(KVObservable& object, std::string_view key, std::function<void()> show);
  /// Does what the user has asked for.
  void perform(const std::function<void()>& action) const { mPerform(action); }

 private:
  void buildDeviceMenu();
  void rebuildChannelMenu();
  void showChoices();

  QWidget mView;
  const QString mTitle;
  const VLPerform mPerform;
  VLPopupButton* _devicePopUpButton = nullptr;   // a child of the view
  VLPopupButton* _channelPopUpButton = nullptr;  // a child of the view
  std::vector<KVObserverToken> mTokens;
  const host::WeakSelf<VLAudioDeviceViewContoller> mSelf{this};
};

}  // namespace velor
