// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <utility>

#include "Velor/clock/VLSharedCell.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/devices/VLTimecodeDestinationDeviceDelegate.h"

namespace velor {

/// Any device with a switch for the transmission of MTC to it. All that it does
/// not add is the device's.
class VLTimecodeDestinationDevice : public VLDevice {
 public:
  static constexpr std::string_view kClassName = "VLTimecodeDestinationDevice";

  /// In archives; they must never change.
  static constexpr std::string_view kEnableKey = "enabled.device";
  static constexpr std::string_view kDeviceKey = "device.destinationdevice";

  /// Switched off. Raises without a device. The delegate is held weakly.
  static std::shared_ptr<VLTimecodeDestinationDevice> deviceWithDevice(
      std::shared_ptr<VLDevice> device,
      std::weak_ptr<VLTimecodeDestinationDeviceDelegate> delegate);

  /// Without a delegate, so that its switch has no effect yet. The device may be
  /// missing.
  static std::shared_ptr<VLTimecodeDestinationDevice> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  bool enable() const noexcept { return mEnable.load(); }
  /// Tells the delegate each time, also of no change. Not from the clock's queue,
  /// for which the device manager waits.
  void setEnable(bool enable);

  std::shared_ptr<VLDevice> device() const { return _device.load(); }
  void setDelegate(std::weak_ptr<VLTimecodeDestinationDeviceDelegate> delegate);

  std::any getPropertyForKey(std::string_view key) const override;
  void setProperty(std::any value, std::string_view key) override;
  /// "Error!" without a device.
  std::optional<std::string> name() const override;
  std::optional<std::string> uuid() const override;
  std::uint32_t type() const override;
  std::uint32_t deviceStatus() const override;
  void destroy() override;

  std::uint64_t hash() const override;
  /// Only another of this class can be equal.
  bool isEqual(const VLDevice& other) const override;
  std::string description() const override;

 protected:
  explicit VLTimecodeDestinationDevice(std::shared_ptr<VLDevice> device);
  /// Reads the switch and the device from an archive, for derived classes.
  void decodeBase(store::KeyedUnarchiver& coder);
  void setDevice(std::shared_ptr<VLDevice> device) { _device.store(std::move(device)); }

 private:
  std::atomic<bool> mEnable{false};
  VLSharedCell<std::weak_ptr<VLTimecodeDestinationDeviceDelegate>> _delegate;
  VLSharedCell<std::shared_ptr<VLDevice>> _device;
};

}  // namespace velor
