// SPDX-License-Identifier: MIT
#include "platform/network/SystemHostAddresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/host/Log.h"

namespace velor::network {

std::vector<std::string> SystemHostAddresses::addresses() const {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) {
    VELOR_LOG_WARNING("cannot list the addresses of this host: %s", std::strerror(errno));
    return {};
  }
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(first, &freeifaddrs);
  std::vector<std::string> texts;
  for (const ifaddrs* each = first; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || (each->ifa_flags & IFF_UP) == 0) {
      continue;
    }
    const int family = each->ifa_addr->sa_family;
    const void* address = nullptr;
    if (family == AF_INET) {
      address = &reinterpret_cast<const sockaddr_in*>(each->ifa_addr)->sin_addr;
    } else if (family == AF_INET6) {
      address = &reinterpret_cast<const sockaddr_in6*>(each->ifa_addr)->sin6_addr;
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    if (address != nullptr && inet_ntop(family, address, text.data(), text.size()) != nullptr) {
      texts.emplace_back(text.data());
    }
  }
  return texts;
}

}  // namespace velor::network
