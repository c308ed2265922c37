// SPDX-License-Identifier: MIT
#include "Velor/views/VLAudioDeviceViewContoller.h"

#include <utility>

#include "Kv-Appkit/KVException.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/views/VLPopupButton.h"
#include "Velor/views/VLStyle.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr std::int64_t kMissing = -1;  // the tag of a device that has no id

}  // namespace

VLAudioDeviceViewContoller::VLAudioDeviceViewContoller(const VLDevice& device, VLPerform perform)
    : mTitle(QString::fromStdString(device.name().value_or(""))), mPerform(std::move(perform)) {
  QFont font = mView.font();
  font.setPixelSize(VLStyle::kPanelText);
  mView.setFont(font);
  mView.resize(VLAudioDeviceViewContoller::minSize());
}

VLAudioDeviceViewContoller::~VLAudioDeviceViewContoller() = default;

void VLAudioDeviceViewContoller::awakeFromNib(VLPopupButton& devicePopUpButton,
                                              VLPopupButton& channelPopUpButton,
                                              KVObservable& audioObjectIDObserveredObject,
                                              std::string_view channelKey) {
  _devicePopUpButton = &devicePopUpButton;
  _channelPopUpButton = &channelPopUpButton;
  devicePopUpButton.setPlaceholderText(tr("No audio device"));
  channelPopUpButton.setPlaceholderText(tr("No channel"));
  QObject::connect(&devicePopUpButton, &QComboBox::activated, &mView, [this](int index) {
    const std::int64_t tag = _devicePopUpButton->itemData(index).toLongLong();
    if (tag != kMissing) {
      perform([&] { setDeviceId(static_cast<audio::AudioObjectID>(tag)); });
    }
    showChoices();  // a device that has gone meanwhile is not taken
  });
  QObject::connect(&channelPopUpButton, &QComboBox::activated, &mView, [this](int index) {
    perform([&] { setChannel(static_cast<std::uint32_t>(index)); });
    showChoices();
  });
  const auto show = [this] { showChoices(); };
  KAHALAudioSystem& system = KAHALAudioSystem::defaultSystem();
  observe(system, "audioDevices", show);
  observe(system, "deviceChannels", show);
  observe(audioObjectIDObserveredObject, "audioObjectId", show);
  observe(audioObjectIDObserveredObject, channelKey, show);
  showChoices();
}

void VLAudioDeviceViewContoller::observe(KVObservable& object, std::string_view key,
                                         std::function<void()> show) {
  const auto job = mSelf.job([show = std::move(show)](VLAudioDeviceViewContoller&) { show(); });
  mTokens.push_back(
      object.addObserver(key, [job](const auto&) { host::current().mainQueue().async(job); }));
}

void VLAudioDeviceViewContoller::showChoices() {
  buildDeviceMenu();
  rebuildChannelMenu();
}

void VLAudioDeviceViewContoller::buildDeviceMenu() {
  const std::string chosen = chosenDeviceUID();
  const audio::AudioObjectID used = deviceId();
  bool isMissing = !chosen.empty();
  QString nameOfUsed;
  std::vector<VLPopupButton::Choice> choices;
  for (const auto& device : audioDevices()) {
    try {
      const std::string uid = device->deviceUID();
      choices.push_back({QString::fromStdString(device->name().value_or(uid)), device->objectID()});
      isMissing = isMissing && uid != chosen;
      if (device->objectID() == used) {
        nameOfUsed = choices.back().title;
      }
    } catch (const KVException&) {
      continue;  // gone since
    }
  }
  const QString missing = tr("%1 (missing)").arg(QString::fromStdString(chosen));
  if (isMissing) {
    choices.push_back({missing, kMissing});
  }
  _devicePopUpButton->setChoices(choices, isMissing ? kMissing : std::int64_t{used});
  _devicePopUpButton->setToolTip(
      isMissing && !nameOfUsed.isEmpty()
          ? tr("%1; %2 stands in until it returns").arg(missing, nameOfUsed)
          : QString());
}

void VLAudioDeviceViewContoller::rebuildChannelMenu() {
  std::vector<VLPopupButton::Choice> choices;
  for (const std::string& name : channelNames()) {
    choices.push_back({QString::fromStdString(name), std::ssize(choices)});
  }
  _channelPopUpButton->setChoices(choices, channel());
}

}  // namespace velor
