// SPDX-License-Identifier: MIT
#include "platform/discovery/DiscoveryTypes.h"

#include <algorithm>
#include <string_view>

namespace velor::discovery {

std::string discoveryTextWithoutDot(std::string text) {
  if (text.ends_with('.')) {
    text.pop_back();
  }
  return text;
}

bool isDiscoveryType(const std::string& type) {
  constexpr std::size_t kProtocolBytes = std::string_view("._udp").size();
  constexpr std::size_t kMostNameBytes = 15;
  if (!type.starts_with('_') || (!type.ends_with("._udp") && !type.ends_with("._tcp"))) {
    return false;
  }
  const std::string_view name = std::string_view(type).substr(1, type.size() - 1 - kProtocolBytes);
  return !name.empty() && name.size() <= kMostNameBytes &&
         std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '-';
         });
}

}  // namespace velor::discovery
