// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "platform/network/HostAddresses.h"

namespace velor::network {

/// The addresses that the kernel knows.
class SystemHostAddresses final : public HostAddresses {
 public:
  std::vector<std::string> addresses() const override;
};

}  // namespace velor::network
