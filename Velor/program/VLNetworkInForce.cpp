// SPDX-License-Identifier: MIT
#include "Velor/program/VLNetworkInForce.h"

namespace velor {

VLNetworkInForce::VLNetworkInForce() {
  setUDPNetwork(&mNetwork);
  discovery::setService(&mDiscovery);
}

VLNetworkInForce::~VLNetworkInForce() {
  discovery::setService(nullptr);
  setUDPNetwork(nullptr);
}

}  // namespace velor
