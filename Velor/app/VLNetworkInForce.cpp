// SPDX-License-Identifier: MIT
#include "Velor/app/VLNetworkInForce.h"

#include "platform/discovery/avahi/AvahiDiscovery.h"
#include "platform/discovery/builtin/BuiltinDiscovery.h"

namespace velor {
namespace {

std::unique_ptr<discovery::DiscoveryService> makeDiscovery() {
  if (discovery::AvahiDiscovery::available()) {
    return std::make_unique<discovery::AvahiDiscovery>();
  }
  return std::make_unique<discovery::BuiltinDiscovery>();
}

}  // namespace

VLNetworkInForce::VLNetworkInForce() : mDiscovery(makeDiscovery()) {
  setUDPNetwork(&mNetwork);
  discovery::setService(mDiscovery.get());
}

VLNetworkInForce::~VLNetworkInForce() {
  discovery::setService(nullptr);
  setUDPNetwork(nullptr);
}

}  // namespace velor
