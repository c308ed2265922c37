// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLTimecodeDestinationDevice;

/// Makes a destination's switch take effect.
class VLTimecodeDestinationDeviceDelegate {
 public:
  virtual ~VLTimecodeDestinationDeviceDelegate() = default;

  /// The switch was set, even to what it was. On the thread that set it.
  virtual void deviceDidEnableTransmit(VLTimecodeDestinationDevice& device, bool enable) = 0;
};

}  // namespace velor
