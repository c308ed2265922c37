// SPDX-License-Identifier: MIT
#pragma once

#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/discovery/avahi/AvahiDiscovery.h"

namespace velor {

/// Makes the system's network and its discovery, by the daemon whenever there is one, and
/// makes both the current ones until its end.
class VLCurrentNetwork {
 public:
  explicit VLCurrentNetwork(SystemUDPNetwork::Reach reach = SystemUDPNetwork::Reach::allInterfaces);
  ~VLCurrentNetwork();
  VLCurrentNetwork(const VLCurrentNetwork&) = delete;
  VLCurrentNetwork& operator=(const VLCurrentNetwork&) = delete;

 private:
  SystemUDPNetwork mNetwork;
  discovery::AvahiDiscovery mDiscovery;
};

}  // namespace velor
