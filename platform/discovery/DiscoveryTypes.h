// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace velor::discovery {

/// The strings of a TXT record, each behind its length (RFC 6763, section 6.1).
using DiscoveryTXTData = std::vector<std::uint8_t>;

/// What makes a service one. Type and domain are without a dot at the end.
struct DiscoveryKey {
  std::string name;    ///< 1 to 63 bytes of UTF-8, for people
  std::string type;    ///< "_osc._udp"
  std::string domain;  ///< "local"

  friend auto operator<=>(const DiscoveryKey&, const DiscoveryKey&) = default;
};

/// What is published.
struct DiscoveryRecord {
  DiscoveryKey key;
  std::uint16_t port = 0;
  DiscoveryTXTData txt;
};

/// What a service resolves to.
struct DiscoveryAnswer {
  std::string hostName;  ///< an address, or a name that a socket can connect to
  std::uint16_t port = 0;
  DiscoveryTXTData txt;
};

/// What a search tells of a service.
struct DiscoveryFind {
  std::string name;
  bool isThere = true;
};

/// The given text without its last dot, if it has one.
std::string discoveryTextWithoutDot(std::string text);

/// Whether it is of the form "_name._udp" or "_name._tcp", with a name of 1 to 15
/// letters, digits and hyphens (RFC 6763, section 7).
bool isDiscoveryType(const std::string& type);

}  // namespace velor::discovery
