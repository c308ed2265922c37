// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Velor/devices/VLDevice.h"

namespace velor {

/// The lamps of the device tables; the windows have the images.
enum class VLStatusImage : std::uint8_t { none, available, partiallyAvailable, unavailable };

/// From a device's status to its lamp.
class VLDeviceStatusImageTransformer {
 public:
  /// Of a status that no device has: none.
  static constexpr VLStatusImage transformedValue(std::uint32_t deviceStatus) noexcept {
    switch (deviceStatus) {
      case kVLDeviceStatusRunning:
        return VLStatusImage::available;
      case kVLDeviceStatusFreewheeling:
        return VLStatusImage::partiallyAvailable;
      case kVLDeviceStatusError:
        return VLStatusImage::unavailable;
      default:
        return VLStatusImage::none;
    }
  }
};

}  // namespace velor
