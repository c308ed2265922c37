// SPDX-License-Identifier: MIT
#include "platform/jack/JackCycles.h"

#include <utility>

namespace velor::jack {
namespace {

constexpr std::uint64_t kPoll = 1'000'000;  // ns
// From the end of a cycle until the server has notified its clients that the graph
// has changed with it, ns.
constexpr std::uint64_t kTellingDelay = 10'000'000;
// Others may keep the graph moving without end; the hazard is small after so many looks.
constexpr int kLooks = 10;

}  // namespace

void JackCycles::await(std::uint32_t count) {
  const std::uint32_t before = mCount.load();
  const std::uint32_t enough = 2 * count + (before & 1U);
  const std::uint64_t start = mHost.AudioGetCurrentHostTime();
  while (mCount.load() - before < enough) {
    const std::uint64_t now = mHost.AudioGetCurrentHostTime();
    const bool idle = (mCount.load() & 1U) == 0;
    if (idle && now - start > count * kLongestCycle) {
      return;
    }
    mHost.mach_wait_until(now + kPoll);
  }
}

void JackCycles::awaitRest() {
  for (int look = 0; look < kLooks; ++look) {
    const std::uint64_t changed = mGraphChanged.load();
    if (mHost.AudioGetCurrentHostTime() - changed > kLongestCycle) {
      return;
    }
    await(2);  // the change has taken effect
    mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + kTellingDelay);
    if (mGraphChanged.load() == changed) {
      return;
    }
  }
}

void JackCycles::awaitForgotten() {
  if (std::exchange(mForgetting, false)) {
    await(2);
  }
}

}  // namespace velor::jack
