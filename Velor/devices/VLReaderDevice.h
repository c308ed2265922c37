// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/devices/VLMIDIEndpointDevice.h"

namespace velor {

/// Reads timecode and sends it on from the MIDI source that is its endpoint.
class VLReaderDevice : public VLMIDIEndpointDevice {
 public:
  static constexpr std::string_view kClassName = "VLReaderDevice";

  using VLMIDIEndpointDevice::VLMIDIEndpointDevice;

  static std::shared_ptr<VLReaderDevice> initWithCoder(store::KeyedUnarchiver& coder) {
    return std::make_shared<VLReaderDevice>(decodedEndpoint(coder));
  }
  std::string_view archiveClassName() const override { return kClassName; }
};

}  // namespace velor
