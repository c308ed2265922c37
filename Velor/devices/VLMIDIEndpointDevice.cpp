// SPDX-License-Identifier: MIT
#include "Velor/devices/VLMIDIEndpointDevice.h"

#include <utility>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

// Keeps the hash of a device apart from that of its endpoint.
constexpr std::uint64_t kHashMark = 0xB16D1C5;

}  // namespace

std::shared_ptr<VLMIDIEndpointDevice> VLMIDIEndpointDevice::deviceWithMIDIEndpoint(
    std::shared_ptr<KVMIDIEndpoint> endpoint) {
  return std::make_shared<VLMIDIEndpointDevice>(std::move(endpoint));
}

VLMIDIEndpointDevice::VLMIDIEndpointDevice(std::shared_ptr<KVMIDIEndpoint> endpoint) {
  mEndpoint.store(std::move(endpoint));
}

std::shared_ptr<KVMIDIEndpoint> VLMIDIEndpointDevice::decodedEndpoint(
    store::KeyedUnarchiver& coder) {
  return coder.decodeObject<KVMIDIEndpoint>(kEndpointKey);
}

std::shared_ptr<VLMIDIEndpointDevice> VLMIDIEndpointDevice::initWithCoder(
    store::KeyedUnarchiver& coder) {
  return deviceWithMIDIEndpoint(decodedEndpoint(coder));
}

void VLMIDIEndpointDevice::encodeWithCoder(store::KeyedArchiver& coder) const {
  if (const auto endpoint = mEndpoint.load()) {
    coder.encodeObject(endpoint, kEndpointKey);
  }
}

std::any VLMIDIEndpointDevice::getPropertyForKey(std::string_view key) const {
  const auto endpoint = mEndpoint.load();
  return key == kKVMIDIEndpointDevice && endpoint != nullptr ? std::any(endpoint) : std::any();
}

void VLMIDIEndpointDevice::setProperty(std::any /*value*/, std::string_view /*key*/) {}

std::optional<std::string> VLMIDIEndpointDevice::name() const {
  const auto endpoint = mEndpoint.load();
  return endpoint != nullptr ? endpoint->displayName() : std::nullopt;
}

std::optional<std::string> VLMIDIEndpointDevice::uuid() const {
  const auto endpoint = mEndpoint.load();
  return endpoint != nullptr ? std::optional(std::to_string(endpoint->uniqueID())) : std::nullopt;
}

void VLMIDIEndpointDevice::destroy() {
  if (const auto endpoint = mEndpoint.load()) {
    endpoint->dispose();
    mEndpoint.store(nullptr);
  }
}

std::uint64_t VLMIDIEndpointDevice::hash() const {
  const auto endpoint = mEndpoint.load();
  return (endpoint != nullptr ? endpoint->hash() : 0) ^ kHashMark;
}

std::string VLMIDIEndpointDevice::description() const {
  const auto endpoint = mEndpoint.load();
  return endpoint != nullptr ? endpoint->description() : "(null)";
}

}  // namespace velor
