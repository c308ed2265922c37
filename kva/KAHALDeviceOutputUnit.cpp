// SPDX-License-Identifier: MIT
#include "kva/KAHALDeviceOutputUnit.h"

#include <cstdint>

namespace velor {

void KAHALDeviceOutputUnit::setDeviceID(audio::AudioObjectID deviceID) {
  setPropertyGlobal(KAUnitProperty::currentDevice, deviceID);
}

void KAHALDeviceOutputUnit::enableInput(bool input, bool output) {
  setProperty(KAUnitProperty::enableIO, KAUnitScope::input, 1, std::uint32_t{input});
  setProperty(KAUnitProperty::enableIO, KAUnitScope::output, 0, std::uint32_t{output});
}

}  // namespace velor
