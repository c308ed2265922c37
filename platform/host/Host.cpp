// SPDX-License-Identifier: MIT
#include "platform/host/Host.h"

#include <vector>

namespace velor::host {
namespace {

// Innermost last. Hosts are made and ended by the main thread before and after
// all others run, so a plain vector is enough.
std::vector<Host*>& hosts() {
  static std::vector<Host*> stack;
  return stack;
}

}  // namespace

Host::~Host() = default;

void Host::makeServices() {
  hosts().push_back(this);
  mMainQueue = std::make_unique<MainQueue>(*this);
  mTimers = std::make_unique<TimerService>(*this);
}

void Host::endServices() noexcept {
  mTimers.reset();
  mMainQueue.reset();
  std::erase(hosts(), this);
}

Host& current() noexcept {
  return *hosts().back();
}

}  // namespace velor::host
