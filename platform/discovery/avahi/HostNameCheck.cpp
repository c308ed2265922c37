// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/HostNameCheck.h"

#include <netdb.h>
#include <sys/socket.h>

#include <array>

namespace velor::discovery {
namespace {

std::string textOf(const addrinfo& address) {
  std::array<char, NI_MAXHOST> text{};
  if (getnameinfo(address.ai_addr, address.ai_addrlen, text.data(), text.size(), nullptr, 0,
                  NI_NUMERICHOST) != 0) {
    return "";
  }
  const std::string all = text.data();
  return all.substr(0, all.find('%'));
}

}  // namespace

bool HostNameCheck::nameLeadsToAddress(const std::string& name, const std::string& address) {
  addrinfo hints{};
  hints.ai_family = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* first = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &hints, &first) != 0) {
    return false;
  }
  bool found = false;
  for (const addrinfo* each = first; each != nullptr; each = each->ai_next) {
    found = found || textOf(*each) == address;
  }
  freeaddrinfo(first);
  return found;
}

}  // namespace velor::discovery
