// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/HostNameCheck.h"

#include <netdb.h>
#include <sys/socket.h>

#include <array>
#include <mutex>
#include <utility>
#include <vector>

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

// The library works on this until it has an answer.
struct HostNameCheck::Request {
  ~Request() {
    if (control.ar_result != nullptr) {
      freeaddrinfo(control.ar_result);
    }
  }
  std::string name;
  std::string address;
  addrinfo hints{};
  gaicb control{};
};

HostNameCheck::HostNameCheck(const std::string& name, const std::string& address)
    : mRequest(std::make_unique<Request>()) {
  mRequest->name = name;
  mRequest->address = address;
  mRequest->hints.ai_family = address.find(':') == std::string::npos ? AF_INET : AF_INET6;
  mRequest->hints.ai_socktype = SOCK_DGRAM;
  mRequest->control.ar_name = mRequest->name.c_str();
  mRequest->control.ar_request = &mRequest->hints;
  gaicb* list[] = {&mRequest->control};
  if (getaddrinfo_a(GAI_NOWAIT, list, 1, nullptr) != 0) {
    mRequest->address.clear();  // leads nowhere
  }
}

HostNameCheck::~HostNameCheck() {
  if (isDone() || gai_cancel(&mRequest->control) == EAI_CANCELED) {
    return;
  }
  static std::mutex mutex;
  static std::vector<std::unique_ptr<Request>> left;
  const std::lock_guard lock(mutex);
  std::erase_if(left, [](const auto& each) { return gai_error(&each->control) != EAI_INPROGRESS; });
  left.push_back(std::move(mRequest));
}

bool HostNameCheck::isDone() const {
  return mRequest->address.empty() || gai_error(&mRequest->control) != EAI_INPROGRESS;
}

bool HostNameCheck::nameLeadsToAddress() const {
  if (!isDone() || gai_error(&mRequest->control) != 0) {
    return false;
  }
  for (const addrinfo* each = mRequest->control.ar_result; each != nullptr; each = each->ai_next) {
    if (textOf(*each) == mRequest->address) {
      return true;
    }
  }
  return false;
}

}  // namespace velor::discovery
