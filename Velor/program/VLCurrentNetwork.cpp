// SPDX-License-Identifier: MIT
#include "Velor/program/VLCurrentNetwork.h"

namespace velor {

VLCurrentNetwork::VLCurrentNetwork(SystemUDPNetwork::Reach reach) : mNetwork(reach) {
  setUDPNetwork(&mNetwork);
  network::setHostAddresses(&mAddresses);
  discovery::setService(&mDiscovery);
}

VLCurrentNetwork::~VLCurrentNetwork() {
  discovery::setService(nullptr);
  network::setHostAddresses(nullptr);
  setUDPNetwork(nullptr);
}

}  // namespace velor
