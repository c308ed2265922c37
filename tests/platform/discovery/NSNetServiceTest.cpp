// SPDX-License-Identifier: MIT
#include "platform/discovery/NSNetService.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedHost.h"
#include "tests/platform/discovery/DiscoveryWitness.h"

namespace velor::discovery {
namespace {

// A back end may have posted its reply before the activity ended.
TEST(NSNetServiceTest, RepliesThatComeTooLateReachNobody) {
  constexpr std::uint64_t kSecond = 1'000'000'000;
  host::SimulatedHost host;
  BuiltinDiscovery discovery("10.0.0.5");
  setService(&discovery);
  const auto witness = std::make_shared<DiscoveryWitness>();
  const auto ours = NSNetService::initWithDomain("", "_osc._udp", "Velor-OSC", 7770);
  ours->publishWithOptions(0);
  host.advance(kSecond);

  const auto stopped = NSNetService::initWithDomain("local.", "_osc._udp.", "Velor-OSC");
  stopped->setDelegate(witness);
  auto ended = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC");
  ended->setDelegate(witness);
  const auto orphan = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC");
  auto gone = std::make_shared<DiscoveryWitness>();
  orphan->setDelegate(gone);
  host.mainQueue().async([&] {
    for (const auto& each : {stopped, ended, orphan}) {
      each->resolveWithTimeout(10);
    }
    host.mach_wait_until(host.AudioGetCurrentHostTime() + kSecond);  // the replies are posted
    stopped->stop();
    ended = nullptr;
    gone = nullptr;
  });
  host.advance(20 * kSecond);
  EXPECT_EQ(witness->resolved, std::vector<std::shared_ptr<NSNetService>>());
  EXPECT_EQ(witness->errors, std::vector<int>());
  EXPECT_EQ(witness->stopped, 1);
  EXPECT_EQ(orphan->hostName(), "10.0.0.5");
}

}  // namespace
}  // namespace velor::discovery
