// SPDX-License-Identifier: MIT
#include "platform/discovery/DiscoveryTypes.h"

#include <regex>

namespace velor::discovery {

std::string discoveryTextWithoutDot(std::string text) {
  if (text.ends_with('.')) {
    text.pop_back();
  }
  return text;
}

bool isDiscoveryType(const std::string& type) {
  return std::regex_match(type, std::regex("_[A-Za-z0-9-]{1,15}\\._(udp|tcp)"));
}

}  // namespace velor::discovery
