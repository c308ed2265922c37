// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/network/HostAddresses.h"

namespace velor::network {

/// The addresses that its owner gives. Any thread.
class SimulatedHostAddresses final : public HostAddresses {
 public:
  void setAddresses(std::vector<std::string> addresses) {
    const std::lock_guard lock(mMutex);
    mAddresses = std::move(addresses);
  }
  std::vector<std::string> addresses() const override {
    const std::lock_guard lock(mMutex);
    return mAddresses;
  }

 private:
  mutable std::mutex mMutex;
  std::vector<std::string> mAddresses;  // under mMutex
};

}  // namespace velor::network
