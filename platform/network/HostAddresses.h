// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace velor::network {

/// The addresses of this host. Implementations: SystemHostAddresses, SimulatedHostAddresses.
class HostAddresses {
 public:
  virtual ~HostAddresses() = default;
  HostAddresses(const HostAddresses&) = delete;
  HostAddresses& operator=(const HostAddresses&) = delete;

  /// The addresses of all interfaces that are up, loopback included, as texts like
  /// "192.168.2.7" and "fe80::1", interface by interface in the order of the system. Empty
  /// when the system does not tell them. Any thread; it may wait for the system.
  virtual std::vector<std::string> addresses() const = 0;

 protected:
  HostAddresses() = default;
};

/// The current ones; the application chooses them once, a test for each case. Without a
/// choice: none.
const HostAddresses& hostAddresses() noexcept;
/// Null takes the choice back.
void setHostAddresses(const HostAddresses* addresses) noexcept;

}  // namespace velor::network
