// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/clock/VLSharedCell.h"
#include "Velor/devices/VLDevice.h"

namespace velor {

/// A MIDI endpoint as a device. The endpoint is null in one that was stored and
/// that the system does not know any more.
class VLMIDIEndpointDevice : public VLDevice {
 public:
  static constexpr std::string_view kClassName = "VLMIDIEndpointDevice";

  /// In archives; it must never change.
  static constexpr std::string_view kEndpointKey = "endpoint";

  static std::shared_ptr<VLMIDIEndpointDevice> deviceWithMIDIEndpoint(
      std::shared_ptr<KVMIDIEndpoint> endpoint);
  explicit VLMIDIEndpointDevice(std::shared_ptr<KVMIDIEndpoint> endpoint);

  static std::shared_ptr<VLMIDIEndpointDevice> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  std::any getPropertyForKey(std::string_view key) const override;
  void setProperty(std::any value, std::string_view key) override;
  /// The endpoint's display name.
  std::optional<std::string> name() const override;
  /// The endpoint's unique id as a decimal number with a sign.
  std::optional<std::string> uuid() const override;
  std::uint32_t type() const override { return kVLDeviceTypeMIDI; }
  std::uint32_t deviceStatus() const override { return kVLDeviceStatusIdle; }
  /// Takes a virtual endpoint out of the system, and lets go of it. Raises for an
  /// endpoint that is not of this process.
  void destroy() override;

  std::uint64_t hash() const override;
  bool isEqual(const VLDevice& other) const override { return hash() == other.hash(); }
  std::string description() const override;

 protected:
  void setEndpoint(std::shared_ptr<KVMIDIEndpoint> endpoint) {
    mEndpoint.store(std::move(endpoint));
  }
  /// Reads the endpoint from an archive, for derived classes.
  static std::shared_ptr<KVMIDIEndpoint> decodedEndpoint(store::KeyedUnarchiver& coder);

 private:
  VLSharedCell<std::shared_ptr<KVMIDIEndpoint>> mEndpoint;
};

}  // namespace velor
