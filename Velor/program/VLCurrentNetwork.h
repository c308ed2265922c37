// SPDX-License-Identifier: MIT
#pragma once

#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/discovery/avahi/AvahiDiscovery.h"
#include "platform/network/SystemHostAddresses.h"

namespace velor {

/// Makes the system's network, its addresses of this host and its discovery, by the daemon
/// whenever there is one, and makes them the current ones until its end.
class VLCurrentNetwork {
 public:
  explicit VLCurrentNetwork(SystemUDPNetwork::Reach reach = SystemUDPNetwork::Reach::allInterfaces);
  ~VLCurrentNetwork();
  VLCurrentNetwork(const VLCurrentNetwork&) = delete;
  VLCurrentNetwork& operator=(const VLCurrentNetwork&) = delete;

 private:
  SystemUDPNetwork mNetwork;
  network::SystemHostAddresses mAddresses;
  discovery::AvahiDiscovery mDiscovery;
};

}  // namespace velor
