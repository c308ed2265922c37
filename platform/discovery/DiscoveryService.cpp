// SPDX-License-Identifier: MIT
#include "platform/discovery/DiscoveryService.h"

namespace velor::discovery {
namespace {

DiscoveryService* gService = nullptr;

}  // namespace

DiscoveryService& service() noexcept {
  return *gService;
}
void setService(DiscoveryService* service) noexcept {
  gService = service;
}

}  // namespace velor::discovery
