// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/discovery/DiscoveryService.h"

namespace velor {

/// Makes the system's network and its discovery, by the daemon where there can be one,
/// and puts both in force; the owner takes them out of force with it.
class VLNetworkInForce {
 public:
  VLNetworkInForce();
  ~VLNetworkInForce();
  VLNetworkInForce(const VLNetworkInForce&) = delete;
  VLNetworkInForce& operator=(const VLNetworkInForce&) = delete;

 private:
  SystemUDPNetwork mNetwork;
  const std::unique_ptr<discovery::DiscoveryService> mDiscovery;
};

}  // namespace velor
