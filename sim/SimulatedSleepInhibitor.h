// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/power/SleepInhibitor.h"

namespace velor::power {

/// Keeps what it is told. Any thread.
class SimulatedSleepInhibitor final : public SleepInhibitor {
 public:
  void inhibit(const std::string& reason) override { note("inhibit: " + reason); }
  void release() override { note("release"); }

  std::vector<std::string> takeCalls() {
    const std::lock_guard lock(mMutex);
    return std::exchange(mCalls, {});
  }

 private:
  void note(std::string call) {
    const std::lock_guard lock(mMutex);
    mCalls.push_back(std::move(call));
  }

  std::mutex mMutex;
  std::vector<std::string> mCalls;  // under mMutex
};

}  // namespace velor::power
