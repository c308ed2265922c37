// SPDX-License-Identifier: MIT
#include "Velor/views/VLLTCReaderViewController.h"

#include <ui_VLLTCReaderViewController.h>

#include <QString>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/views/VLHexFormatter.h"
#include "Velor/views/VLStyle.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr double kFramesPerStep = 2;  // of the time while it freewheels
constexpr double kNsPerSecond = 1e9;

// In percent; not a number where the one or the other is not known.
double deviation(std::uint32_t format, double speed) {
  const double nominal = ltc_is_valid_type(format) ? ltc_frames_per_second(format) : 0;
  return std::isnormal(nominal) && std::isnormal(speed) ? (1 - nominal / speed) * 100
                                                        : std::numeric_limits<double>::quiet_NaN();
}

}  // namespace

VLLTCReaderViewController::VLLTCReaderViewController(
    const std::shared_ptr<VLLTCReaderDevice>& device, VLPerform perform)
    : VLAudioDeviceViewContoller(*device, std::move(perform)),
      mForm(std::make_unique<Ui::VLLTCReaderViewController>()),
      mReaderDevice(device) {
  mForm->setupUi(view());
  mForm->tcLabel->setFont(VLStyle::panelTimeFont());
  mForm->userbitsLabel->setFont(VLStyle::timeFont(VLStyle::secondaryFont(view()->font())));
  device->addDelegate(mSelf);
  awakeFromNib(*mForm->devicePopUpButton, *mForm->channelPopUpButton, *device, "channel");
  mSpeed = device->getLatestSpeed();
  mForm->userbitsLabel->hide();
  mForm->tcLabel->setText(QString::fromStdString(invalidSMPTEString()));
  updateFrString();
  changedUserbits(device->userbits());
  if (device->freewheeling()) {
    startTimer();
  }
  connectControls();
  observe(*device, "freewheelTime", [this] { showSettings(); });
  observe(*device, "conditionsInput", [this] { showSettings(); });
  showSettings();
}

VLLTCReaderViewController::~VLLTCReaderViewController() = default;

void VLLTCReaderViewController::connectControls() {
  QObject::connect(mForm->stopFreewheelingButton, &VLButton::clicked, view(),
                   [this] { stopFreewheeling(); });
  QObject::connect(mForm->freewheelField, &VLTextField::textCommitted, view(),
                   [this](const QString& text) { commitFreewheelTime(text); });
  QObject::connect(mForm->conditionBox, &QAbstractButton::clicked, view(), [this](bool isOn) {
    if (const auto device = mReaderDevice.lock()) {
      perform([&] { device->setConditionsInput(isOn); });
    }
    showSettings();
  });
}

// --- from the device

void VLLTCReaderViewController::setInputTimecode(const SMPTETime& time) {
  mForm->tcLabel->setText(QString::fromStdString(stringFromSMPTETime(time)));
}

void VLLTCReaderViewController::changedUserbits(std::uint32_t userbits) {
  mForm->userbitsLabel->setText("UB: " + VLHexFormatter::stringForObjectValue(userbits));
}

void VLLTCReaderViewController::changedCurrentSpeed(double speed) {
  mSpeed = speed;
  updateFrString();
}

void VLLTCReaderViewController::mtcDidChangeState(VLMTCState state) {
  updateFrString();
  switch (state) {
    case kVLMTCDidChangeFramerate:
    case kVLMTCDidStartReading:
    case kVLMTCDidResume:
      break;
    case kVLMTCDidStartFreewheel:
      startTimer();
      break;
    case kVLMTCDidStopFreewheel:
      mTimer.reset();
      break;
    default:
      mForm->statusImage->setImage(VLStatusImage::unavailable);
  }
}

void VLLTCReaderViewController::updateFrString() {
  const auto device = mReaderDevice.lock();
  if (device == nullptr) {
    return;
  }
  SMPTETime time{};
  device->getLatestTime(time);
  const bool isRunning = device->running();
  const bool isFreewheeling = device->freewheeling();
  if (ltc_is_valid(time)) {
    std::array<char, 80> text{};
    if (isRunning) {
      std::snprintf(text.data(), text.size(), "%s, %s (%+.3f%c)",
                    stringFromSMPTEFormat(time.mType).c_str(),
                    isFreewheeling ? "freewheel" : "lock", deviation(time.mType, mSpeed), '%');
    }
    mForm->frLabel->setText(isRunning ? QString::fromUtf8(text.data()) : tr("Not Reading"));
    mForm->statusImage->setImage(!isRunning       ? VLStatusImage::none
                                 : isFreewheeling ? VLStatusImage::partiallyAvailable
                                                  : VLStatusImage::available);
    mForm->userbitsLabel->setVisible(isRunning);
  }
  mForm->stopFreewheelingButton->setEnabled(isFreewheeling);
}

// --- while it freewheels

void VLLTCReaderViewController::startTimer() {
  mTimer = std::make_unique<host::Timer>(
      host::current().mainQueue(),
      mSelf.job([](VLLTCReaderViewController& self) { self.refreshTime(); }));
  mTimer->setDeadline(host::current().AudioGetCurrentHostTime());
  mTimer->resume();
}

// LTC that returns shows its own time again.
void VLLTCReaderViewController::refreshTime() {
  const auto device = mReaderDevice.lock();
  const double interval =
      device != nullptr ? kFramesPerStep * kNsPerSecond / device->frameRate() : 0;
  if (device == nullptr || !device->freewheeling() || !std::isnormal(interval) || interval < 0) {
    return;
  }
  SMPTETime time{};
  device->getLatestTime(time);
  if (ltc_is_valid(time)) {
    setInputTimecode(time);
  }
  mTimer->setDeadline(host::current().AudioGetCurrentHostTime() +
                      static_cast<std::uint64_t>(interval));
  mTimer->resume();
}

// --- what the user does

void VLLTCReaderViewController::stopFreewheeling() {
  if (const auto device = mReaderDevice.lock()) {
    perform([&] { device->stopFreewheeling(); });
  }
}

// What is no number of seconds gives back what was.
void VLLTCReaderViewController::commitFreewheelTime(const QString& text) {
  bool isNumber = false;
  const int seconds = text.trimmed().toInt(&isNumber);
  const auto device = mReaderDevice.lock();
  if (device != nullptr && isNumber) {
    perform([&] { device->setFreewheelTime(seconds); });
  }
  showSettings();
}

void VLLTCReaderViewController::showSettings() {
  if (const auto device = mReaderDevice.lock()) {
    mForm->freewheelField->showValue(QString::number(device->freewheelTime()));
    mForm->conditionBox->setChecked(device->conditionsInput());
  }
}

VLLTCReaderViewController::AudioDevices VLLTCReaderViewController::audioDevices() const {
  return KAHALAudioSystem::defaultSystem().devicesWithInputs();
}

std::vector<std::string> VLLTCReaderViewController::channelNames() const {
  const auto device = mReaderDevice.lock();
  return device != nullptr ? device->channelNames() : std::vector<std::string>();
}

audio::AudioObjectID VLLTCReaderViewController::deviceId() const {
  const auto device = mReaderDevice.lock();
  return device != nullptr ? device->audioObjectId() : audio::kAudioObjectUnknown;
}

void VLLTCReaderViewController::setDeviceId(audio::AudioObjectID deviceId) {
  if (const auto device = mReaderDevice.lock()) {
    device->setAudioObjectId(deviceId);
  }
}

std::string VLLTCReaderViewController::chosenDeviceUID() const {
  const auto device = mReaderDevice.lock();
  return device != nullptr ? device->chosenDeviceUID() : "";
}

std::optional<std::uint32_t> VLLTCReaderViewController::channel() const {
  const auto device = mReaderDevice.lock();
  return device != nullptr ? std::optional(device->channel()) : std::nullopt;
}

void VLLTCReaderViewController::setChannel(std::uint32_t channel) {
  if (const auto device = mReaderDevice.lock()) {
    device->setChannel(channel);
  }
}

}  // namespace velor
