// SPDX-License-Identifier: MIT
#include "Velor/devices/VLTimecodeDestinationDevice.h"

#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

// Keeps the hash of a destination apart from that of its device.
constexpr std::uint64_t kHashMark = 0xB16B00B5;

}  // namespace

VLTimecodeDestinationDevice::VLTimecodeDestinationDevice(std::shared_ptr<VLDevice> device) {
  _device.store(std::move(device));
}

std::shared_ptr<VLTimecodeDestinationDevice> VLTimecodeDestinationDevice::deviceWithDevice(
    std::shared_ptr<VLDevice> device, std::weak_ptr<VLTimecodeDestinationDeviceDelegate> delegate) {
  KV_REQUIRE_PARAMETER(device != nullptr, "device");
  std::shared_ptr<VLTimecodeDestinationDevice> made(
      new VLTimecodeDestinationDevice(std::move(device)));
  made->setDelegate(std::move(delegate));
  return made;
}

std::shared_ptr<VLTimecodeDestinationDevice> VLTimecodeDestinationDevice::initWithCoder(
    store::KeyedUnarchiver& coder) {
  std::shared_ptr<VLTimecodeDestinationDevice> made(new VLTimecodeDestinationDevice(nullptr));
  made->decodeBase(coder);
  return made;
}

void VLTimecodeDestinationDevice::decodeBase(store::KeyedUnarchiver& coder) {
  setEnable(coder.decodeBool(kEnableKey).value_or(false));
  _device.store(coder.decodeObject<VLDevice>(kDeviceKey));
}

void VLTimecodeDestinationDevice::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeObject(_device.load(), kDeviceKey);
  coder.encodeBool(enable(), kEnableKey);
}

void VLTimecodeDestinationDevice::setEnable(bool enable) {
  mEnable.store(enable);
  if (const auto delegate = _delegate.load().lock()) {
    delegate->deviceDidEnableTransmit(*this, enable);
  }
}

void VLTimecodeDestinationDevice::setDelegate(
    std::weak_ptr<VLTimecodeDestinationDeviceDelegate> delegate) {
  _delegate.store(std::move(delegate));
}

std::any VLTimecodeDestinationDevice::getPropertyForKey(std::string_view key) const {
  const auto device = _device.load();
  return device != nullptr ? device->getPropertyForKey(key) : std::any();
}

void VLTimecodeDestinationDevice::setProperty(std::any value, std::string_view key) {
  if (const auto device = _device.load()) {
    device->setProperty(std::move(value), key);
  }
}

std::optional<std::string> VLTimecodeDestinationDevice::name() const {
  const auto device = _device.load();
  return device != nullptr ? device->name() : "Error!";
}

std::optional<std::string> VLTimecodeDestinationDevice::uuid() const {
  const auto device = _device.load();
  return device != nullptr ? device->uuid() : std::nullopt;
}

std::uint32_t VLTimecodeDestinationDevice::type() const {
  const auto device = _device.load();
  return device != nullptr ? device->type() : 0;
}

std::uint32_t VLTimecodeDestinationDevice::deviceStatus() const {
  const auto device = _device.load();
  return device != nullptr ? device->deviceStatus() : kVLDeviceStatusIdle;
}

void VLTimecodeDestinationDevice::destroy() {
  if (const auto device = _device.load()) {
    device->destroy();
  }
}

std::uint64_t VLTimecodeDestinationDevice::hash() const {
  const auto device = _device.load();
  return (device != nullptr ? device->hash() : 0) ^ kHashMark;
}

bool VLTimecodeDestinationDevice::isEqual(const VLDevice& other) const {
  return dynamic_cast<const VLTimecodeDestinationDevice*>(&other) != nullptr &&
         hash() == other.hash();
}

std::string VLTimecodeDestinationDevice::description() const {
  const auto device = _device.load();
  return "Timecode Destination Device: " + (device != nullptr ? device->description() : "(null)");
}

}  // namespace velor
