// SPDX-License-Identifier: MIT
#include "platform/discovery/NSNetService.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedHost.h"
#include "tests/platform/discovery/DiscoveryWitness.h"

namespace velor::discovery {
namespace {

DiscoveryTXTData bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

// The example of RFC 6763, section 6.1, and the rules of 6.4.
TEST(NSNetServiceTXT, RecordsFollowTheirStandardAndGiveThePairsBeforeACut) {
  using namespace std::string_view_literals;
  using Dictionary = NSNetService::TXTRecordDictionary;
  const DiscoveryTXTData example = bytes("\x09key=value\x08paper=A4\x07passreq"sv);
  const Dictionary expected = {
      {"key", bytes("value")}, {"paper", bytes("A4")}, {"passreq", std::nullopt}};
  EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData(example), expected);
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary(expected), example);
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary({{"", bytes("x")},
                                                       {"a=b", bytes("x")},
                                                       {"\xC3\xA4", bytes("x")},
                                                       {"k", bytes(std::string(254, 'x'))}}),
            DiscoveryTXTData());
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary({{"k", bytes(std::string(253, 'x'))}}).size(),
            256U);
  const auto service = NSNetService::initWithDomain("local", "_osc._udp.", "x", 1);
  EXPECT_TRUE(service->setTXTRecordData(example));
  EXPECT_FALSE(
      service->setTXTRecordData(bytes("\x03"
                                      "a=1\x03"
                                      "b="sv)));
}

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
