// SPDX-License-Identifier: MIT
#include "Velor/views/VLGeneratorViewController.h"

#include <ui_VLGeneratorViewController.h>

#include <QSignalBlocker>
#include <algorithm>
#include <cmath>
#include <utility>

#include "Kv-Appkit/KVDecibelTransformer.h"
#include "Kv-Appkit/KVException.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/views/VLHexFormatter.h"
#include "Velor/views/VLStyle.h"
#include "kvtimecode/generator/KVLTCGenerator.h"

namespace velor {

VLGeneratorViewController::VLGeneratorViewController(
    const std::shared_ptr<VLLTCGeneratorDevice>& device, VLPerform perform)
    : VLAudioDeviceViewContoller(*device, std::move(perform)),
      mForm(std::make_unique<Ui::VLGeneratorViewController>()),
      mGenerator(device->generator()) {
  KVLTCGenerator& generator = *device->generator();
  mForm->setupUi(view());
  mForm->tclabel->setFont(VLStyle::panelTimeFont());
  mForm->userbitsField->setFont(VLStyle::timeFont(view()->font()));
  mForm->userbitsField->setValidator(new VLHexFormatter(view()));
  awakeFromNib(*mForm->devicePopUpButton, *mForm->channelPopUpButton, generator, "channelMap");
  connectControls();
  observe(generator, "tcstring", [this] { showTime(); });
  for (const char* key : {"frameRateString", "isGenerating"}) {
    observe(generator, key, [this] { showRate(); });
  }
  for (const char* key : {"level", "userbits"}) {
    observe(generator, key, [this] { showSettings(); });
  }
  showTime();
  showRate();
  showSettings();
}

VLGeneratorViewController::~VLGeneratorViewController() = default;

void VLGeneratorViewController::connectControls() {
  QObject::connect(mForm->levelSlider, &QSlider::valueChanged, view(), [this](int place) {
    if (const auto generator = mGenerator.lock()) {
      perform([&] {
        generator->setUiLevel(static_cast<float>(place) /
                              static_cast<float>(mForm->levelSlider->maximum()));
      });
    }
    showSettings();
  });
  QObject::connect(
      mForm->userbitsField, &VLTextField::textCommitted, view(), [this](const QString& text) {
        if (const auto generator = mGenerator.lock()) {
          perform([&] { generator->setUserbits(VLHexFormatter::getObjectValue(text)); });
        }
        showSettings();
      });
}

void VLGeneratorViewController::showTime() {
  if (const auto generator = mGenerator.lock()) {
    mForm->tclabel->setText(QString::fromStdString(generator->tcstring()));
  }
}

void VLGeneratorViewController::showRate() {
  if (const auto generator = mGenerator.lock()) {
    mForm->frLabel->setText(QString::fromStdString(generator->frameRateString()));
    mForm->statusImage->setImage(
        VLDeviceStatusImageTransformer::transformedValue(generator->deviceStatus()));
  }
}

void VLGeneratorViewController::showSettings() {
  if (const auto generator = mGenerator.lock()) {
    const QSignalBlocker isShown(mForm->levelSlider);
    mForm->levelSlider->setValue(static_cast<int>(
        std::lround(generator->uiLevel() * static_cast<float>(mForm->levelSlider->maximum()))));
    mForm->levelLabel->setText(QString::fromStdString(
        KVDecibelTransformer::transformedValue(static_cast<double>(generator->level()))));
    mForm->userbitsField->showValue(VLHexFormatter::stringForObjectValue(generator->userbits()));
  }
}

VLGeneratorViewController::AudioDevices VLGeneratorViewController::audioDevices() const {
  return KAHALAudioSystem::defaultSystem().devicesWithOutputs();
}

std::vector<std::string> VLGeneratorViewController::channelNames() const {
  try {
    const auto device = KAHALAudioDevice::initWithAudioObjectID(deviceId());
    return device != nullptr ? device->channelNamesInScope(audio::AudioDirection::output)
                             : std::vector<std::string>();
  } catch (const KVException&) {
    return {};  // gone since
  }
}

audio::AudioObjectID VLGeneratorViewController::deviceId() const {
  const auto generator = mGenerator.lock();
  return generator != nullptr ? generator->audioObjectId() : audio::kAudioObjectUnknown;
}

void VLGeneratorViewController::setDeviceId(audio::AudioObjectID deviceId) {
  if (const auto generator = mGenerator.lock()) {
    generator->setAudioObjectId(deviceId);
  }
}

std::string VLGeneratorViewController::chosenDeviceUID() const {
  const auto generator = mGenerator.lock();
  return generator != nullptr ? generator->chosenDeviceUID() : "";
}

// The first one that has the signal.
std::optional<std::uint32_t> VLGeneratorViewController::channel() const {
  const auto generator = mGenerator.lock();
  if (generator == nullptr) {
    return std::nullopt;
  }
  std::vector<std::int32_t> map(generator->lengthOfChannelMap(), -1);
  generator->getChannelMap(map);
  const auto place = std::ranges::find(map, 0);
  return place != map.end() ? std::optional(static_cast<std::uint32_t>(place - map.begin()))
                            : std::nullopt;
}

void VLGeneratorViewController::setChannel(std::uint32_t channel) {
  if (const auto generator = mGenerator.lock()) {
    std::vector<std::int32_t> map(generator->lengthOfChannelMap(), -1);
    if (channel < map.size()) {
      map[channel] = 0;
      generator->setChannelMap(map);
    }
  }
}

}  // namespace velor
