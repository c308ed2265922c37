// SPDX-License-Identifier: MIT
#include "Velor/program/VLNetworkInForce.h"

namespace velor {

VLNetworkInForce::VLNetworkInForce(SystemUDPNetwork::Reach reach) : mNetwork(reach) {
  setUDPNetwork(&mNetwork);
  discovery::setService(&mDiscovery);
}

VLNetworkInForce::~VLNetworkInForce() {
  discovery::setService(nullptr);
  setUDPNetwork(nullptr);
}

}  // namespace velor
