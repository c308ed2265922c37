// SPDX-License-Identifier: MIT
#include "platform/power/SleepInhibitor.h"

#include <atomic>

namespace velor::power {
namespace {

class NoInhibitor final : public SleepInhibitor {
 public:
  void inhibit(const std::string& /*reason*/) override {}
  void release() override {}
};

NoInhibitor gNone;
std::atomic<SleepInhibitor*> gInhibitor{&gNone};

}  // namespace

SleepInhibitor& sleepInhibitor() noexcept {
  return *gInhibitor.load();
}
void setSleepInhibitor(SleepInhibitor* inhibitor) noexcept {
  gInhibitor.store(inhibitor != nullptr ? inhibitor : &gNone);
}

}  // namespace velor::power
