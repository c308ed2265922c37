// SPDX-License-Identifier: MIT
#pragma once

#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/discovery/avahi/AvahiDiscovery.h"

namespace velor {

/// Makes the system's network and its discovery, by the daemon whenever there is one, and
/// puts both in force; the owner takes them out of force with it.
class VLNetworkInForce {
 public:
  explicit VLNetworkInForce(SystemUDPNetwork::Reach reach = SystemUDPNetwork::Reach::allInterfaces);
  ~VLNetworkInForce();
  VLNetworkInForce(const VLNetworkInForce&) = delete;
  VLNetworkInForce& operator=(const VLNetworkInForce&) = delete;

 private:
  SystemUDPNetwork mNetwork;
  discovery::AvahiDiscovery mDiscovery;
};

}  // namespace velor
