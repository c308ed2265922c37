// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace velor::discovery {

/// The strings of a TXT record, each after its length (RFC 6763, section 6.1).
using DiscoveryTXTData = std::vector<std::uint8_t>;

/// The identity of a service. Type and domain have no dot at the end.
struct DiscoveryKey {
  std::string name;    ///< 1 to 63 bytes of UTF-8, for people
  std::string type;    ///< "_osc._udp"
  std::string domain;  ///< "local"

  friend auto operator<=>(const DiscoveryKey&, const DiscoveryKey&) = default;
};

/// A service to publish.
struct DiscoveryRecord {
  DiscoveryKey key;
  std::uint16_t port = 0;
  DiscoveryTXTData txt;
};

/// The result of a resolution.
struct DiscoveryAnswer {
  std::string hostName;  ///< an address, or a name that a socket can connect to
  std::uint16_t port = 0;
  DiscoveryTXTData txt;
};

/// A service that a search reports: it has come, or it has gone.
struct DiscoveryFind {
  std::string name;
  bool isThere = true;
};

/// A publication, a search or a resolution, which ends with its last owner.
using DiscoveryActivity = std::shared_ptr<const void>;

/// The given text without its last dot, if it has one.
std::string discoveryTextWithoutDot(std::string text);

/// Whether it is of the form "_name._udp" or "_name._tcp", with a name of 1 to 15
/// letters, digits and hyphens (RFC 6763, section 7).
bool isDiscoveryType(const std::string& type);

}  // namespace velor::discovery
