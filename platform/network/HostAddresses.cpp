// SPDX-License-Identifier: MIT
#include "platform/network/HostAddresses.h"

#include <atomic>

namespace velor::network {
namespace {

class NoAddresses final : public HostAddresses {
 public:
  std::vector<std::string> addresses() const override { return {}; }
};

const NoAddresses kNone;
std::atomic<const HostAddresses*> gAddresses{&kNone};

}  // namespace

const HostAddresses& hostAddresses() noexcept {
  return *gAddresses.load();
}
void setHostAddresses(const HostAddresses* addresses) noexcept {
  gAddresses.store(addresses != nullptr ? addresses : &kNone);
}

}  // namespace velor::network
