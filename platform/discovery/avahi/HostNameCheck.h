// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor::discovery {

/// Asks the system whether it takes a host's name to an address (in text, without a
/// scope). Without a module for names of ".local" in its resolver it does not, and may
/// need half a minute to say so.
struct HostNameCheck {
  static bool nameLeadsToAddress(const std::string& name, const std::string& address);
};

}  // namespace velor::discovery
