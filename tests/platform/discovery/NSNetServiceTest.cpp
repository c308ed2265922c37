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

constexpr std::uint64_t kSecond = 1'000'000'000;

DiscoveryTXTData bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

// The example of RFC 6763, section 6.1, and the rules of 6.4.
TEST(NSNetServiceTXT, RecordsAreReadByTheRulesOfTheirStandard) {
  using namespace std::string_view_literals;
  using Dictionary = NSNetService::TXTRecordDictionary;
  const DiscoveryTXTData example = bytes("\x09key=value\x08paper=A4\x07passreq"sv);
  const Dictionary expected = {
      {"key", bytes("value")}, {"paper", bytes("A4")}, {"passreq", std::nullopt}};
  EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData(example), expected);
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary(expected), example);

  EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData(bytes("\x00\x02=x\x05"
                                                            "a=b=c\x03"
                                                            "A=z\x03"
                                                            "e=\0\x02"
                                                            "d="sv)),
            (Dictionary{{"a", bytes("b=c")}, {"e", bytes("\0"sv)}, {"d", bytes("")}}));
  EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData({}), Dictionary());
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary({{"", bytes("x")},
                                                       {"a=b", bytes("x")},
                                                       {"\xC3\xA4", bytes("x")},
                                                       {"k", bytes(std::string(254, 'x'))}}),
            DiscoveryTXTData());
  EXPECT_EQ(NSNetService::dataFromTXTRecordDictionary({{"k", bytes(std::string(253, 'x'))}}).size(),
            256U);
}

TEST(NSNetServiceTXT, CutRecordsGiveWhatStandsBeforeTheCutAndAreNotPublished) {
  const auto service = NSNetService::initWithDomain("local", "_osc._udp.", "x", 1);
  const DiscoveryTXTData whole = bytes(
      "\x03"
      "a=1\x03"
      "b=2");
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const DiscoveryTXTData cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData(cut).size(), size / 4) << size;
    EXPECT_EQ(service->setTXTRecordData(cut), size % 4 == 0) << size;
  }
}

class NSNetServiceTest : public testing::Test {
 protected:
  NSNetServiceTest() { setService(&mDiscovery); }

  host::SimulatedHost mHost;
  BuiltinDiscovery mDiscovery{"10.0.0.5"};
  std::shared_ptr<DiscoveryWitness> mWitness = std::make_shared<DiscoveryWitness>();
};

// A back end may have posted its news before the activity ended.
TEST_F(NSNetServiceTest, NewsThatComeTooLateReachNobody) {
  const auto ours = NSNetService::initWithDomain("", "_osc._udp", "Velor-OSC", 7770);
  ours->publishWithOptions(0);
  mHost.advance(kSecond);

  const auto stopped = NSNetService::initWithDomain("local.", "_osc._udp.", "Velor-OSC");
  stopped->setDelegate(mWitness);
  auto ended = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC");
  ended->setDelegate(mWitness);
  const auto orphan = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC");
  auto gone = std::make_shared<DiscoveryWitness>();
  orphan->setDelegate(gone);
  mHost.mainQueue().async([&] {
    for (const auto& each : {stopped, ended, orphan}) {
      each->resolveWithTimeout(0);
    }
    mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + kSecond);  // replies lie behind this
    stopped->stop();
    ended = nullptr;
    gone = nullptr;
  });
  mHost.advance(20 * kSecond);
  EXPECT_EQ(mWitness->resolved, std::vector<std::shared_ptr<NSNetService>>());
  EXPECT_EQ(mWitness->stopped, 1);
  EXPECT_EQ(orphan->hostName(), "10.0.0.5");
}

TEST_F(NSNetServiceTest, ATimeoutComesAtItsTimeAndNotAfterAnAnswer) {
  const auto absent = NSNetService::initWithDomain("local", "_osc._udp.", "absent");
  absent->setDelegate(mWitness);
  absent->resolveWithTimeout(10);
  mHost.advance(10 * kSecond - 1);
  EXPECT_EQ(mWitness->errors, std::vector<int>());
  mHost.advance(1);
  EXPECT_EQ(mWitness->errors, std::vector{NSNetServicesError::kTimeout});

  absent->resolveWithTimeout(10);
  const auto late = NSNetService::initWithDomain("local", "_osc._udp.", "absent", 1);
  late->publishWithOptions(0);
  mHost.advance(60 * kSecond);
  EXPECT_EQ(mWitness->resolved.size(), 1U);
  EXPECT_EQ(mWitness->errors.size(), 1U);
}

}  // namespace
}  // namespace velor::discovery
