// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadless.h"

#include <memory>

#include "Velor/program/VLHeadlessFrontEnd.h"

namespace velor {

int VLHeadlessRun(const VLOptions& options, const VLWorld& world) {
  return VLSessionRun(options, world, [&options](VLWantedDevices& devices) {
    return std::make_unique<VLHeadlessFrontEnd>(options, devices);
  });
}

}  // namespace velor
