// SPDX-License-Identifier: MIT
// The contract of a discovery service, on each implementation.
#include <gtest/gtest.h>
#include <netdb.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/discovery/avahi/AvahiDiscovery.h"
#include "platform/host/SystemHost.h"
#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedHost.h"
#include "tests/platform/discovery/DiscoveryWitness.h"
#include "tests/support/Kind.h"
#include "tests/support/Until.h"

namespace velor::discovery {
namespace {

// A discovery service with its host.
struct Setting {
  virtual ~Setting() = default;
  // The daemon, or its counterpart.
  virtual void killDaemon() = 0;
  virtual void startDaemon() = 0;
};

struct BuiltinSetting final : Setting {
  BuiltinSetting() { setService(&mDiscovery); }
  void killDaemon() override { mDiscovery.setRunning(false); }
  void startDaemon() override { mDiscovery.setRunning(true); }
  host::SimulatedHost mHost;
  BuiltinDiscovery mDiscovery;
};

struct AvahiSetting final : Setting {
  AvahiSetting() {
    mServer.start();
    mDiscovery = std::make_unique<AvahiDiscovery>();
    setService(mDiscovery.get());
  }
  void killDaemon() override { mServer.kill(); }
  void startDaemon() override { mServer.start(); }
  test::AvahiServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<AvahiDiscovery> mDiscovery;
};

using DiscoveryKind = test::Kind<Setting>;

class DiscoveryContract : public testing::TestWithParam<DiscoveryKind> {
 protected:
  std::shared_ptr<NSNetService> make(const std::string& name, std::uint16_t port = 0) {
    auto service = NSNetService::initWithDomain("local", "_osc._udp.", name, port);
    service->setDelegate(mWitness);
    return service;
  }
  std::shared_ptr<NSNetService> publish(const std::string& name, std::uint16_t port) {
    auto service = make(name, port);
    service->publishWithOptions(0);
    return service;
  }
  std::shared_ptr<NSNetServiceBrowser> search() { return DiscoveryWitness::search(mWitness); }
  static bool until(const std::function<bool()>& condition) { return test::until(15, condition); }
  bool untilThere(const std::string& name) {
    return until([&] { return mWitness->presentOfName(name) != nullptr; });
  }

  const std::unique_ptr<Setting> mSetting = GetParam().make();
  const std::shared_ptr<DiscoveryWitness> mWitness = std::make_shared<DiscoveryWitness>();
};

TEST_P(DiscoveryContract, APublicationIsFoundAndResolvedAndGoesWithItsObject) {
  auto ours = make("Velor-OSC", 7770);
  const NSNetService::TXTRecordDictionary given = {
      {"uid", std::vector<std::uint8_t>{'4', '2', 0, 0xFF}}, {"flag", std::nullopt}};
  ASSERT_TRUE(ours->setTXTRecordData(NSNetService::dataFromTXTRecordDictionary(given)));
  ours->publishWithOptions(0);
  const auto browser = search();
  ASSERT_TRUE(untilThere("Velor-OSC"));
  const auto found = mWitness->presentOfName("Velor-OSC");
  EXPECT_EQ(found->type(), "_osc._udp.");
  EXPECT_EQ(found->domain(), "local");
  EXPECT_EQ(found->hostName(), std::nullopt);

  found->setDelegate(mWitness);
  found->resolveWithTimeout(10);
  ASSERT_TRUE(until([&] { return !mWitness->resolved.empty(); }));
  EXPECT_EQ(mWitness->resolved[0], found);
  EXPECT_EQ(found->port(), 7770);
  EXPECT_EQ(NSNetService::dictionaryFromTXTRecordData(found->TXTRecordData()), given);
  addrinfo* addresses = nullptr;
  ASSERT_EQ(getaddrinfo(found->hostName().value().c_str(), "7770", nullptr, &addresses), 0);
  freeaddrinfo(addresses);

  ours = nullptr;
  EXPECT_TRUE(until([&] { return mWitness->present.empty(); }));
  EXPECT_EQ(mWitness->errors, std::vector<int>());
}

TEST_P(DiscoveryContract, ServicesGoWithTheDaemonAndReturnWithIt) {
  mSetting->killDaemon();
  const auto ours = publish("Velor-OSC", 7770);
  const auto browser = search();
  const auto resolved = make("Velor-OSC");
  resolved->resolveWithTimeout(60);
  mSetting->startDaemon();
  ASSERT_TRUE(untilThere("Velor-OSC"));
  ASSERT_TRUE(until([&] { return mWitness->published.size() == 1; }));
  mSetting->killDaemon();
  ASSERT_TRUE(until([&] { return mWitness->present.empty(); }));
  mSetting->startDaemon();
  ASSERT_TRUE(untilThere("Velor-OSC"));
  EXPECT_EQ(mWitness->removed, std::vector<std::string>{"Velor-OSC"});
  EXPECT_EQ(mWitness->resolved, std::vector{resolved});
  EXPECT_EQ(mWitness->errors, std::vector<int>());
}

TEST_P(DiscoveryContract, ATakenNameGetsANumberAndASearchReportsAllPresentServicesTogether) {
  const auto first = publish("Velor-OSC", 7770);
  const auto third = publish("third", 7772);
  ASSERT_TRUE(until([&] { return mWitness->published.size() == 2; }));
  const auto second = publish("Velor-OSC", 7771);
  ASSERT_TRUE(until([&] { return mWitness->published.size() == 3; }));
  EXPECT_EQ(second->name(), "Velor-OSC #2");
  EXPECT_EQ(first->name(), "Velor-OSC");
  const auto browser = search();
  ASSERT_TRUE(until([&] { return !mWitness->found.empty(); }));
  EXPECT_EQ(mWitness->found, (std::vector{true, true, false}));
}

TEST_P(DiscoveryContract, AnAbsentServiceTimesOutUnlessItComesInTime) {
  const auto absent = make("absent");
  const std::uint64_t begin = host::current().AudioGetCurrentHostTime();
  absent->resolveWithTimeout(0.5);
  absent->resolveWithTimeout(0.5);
  ASSERT_TRUE(until([&] { return mWitness->errors.size() == 2; }));
  EXPECT_GE(host::current().AudioGetCurrentHostTime(), begin + 500'000'000);
  EXPECT_EQ(mWitness->errors,
            (std::vector{NSNetServicesError::kActivityInProgress, NSNetServicesError::kTimeout}));
  absent->resolveWithTimeout(60);
  const auto late = publish("absent", 7773);
  ASSERT_TRUE(until([&] { return mWitness->resolved.size() == 1; }));
  EXPECT_EQ(absent->port(), 7773);
}

TEST_P(DiscoveryContract, AnEndedSearchIsQuiet) {
  const auto first = publish("first", 7770);
  auto browser = search();
  auto ended = search();
  ASSERT_TRUE(until([&] { return mWitness->found.size() == 2; }));
  browser = ended = nullptr;
  const auto second = publish("second", 7771);
  ASSERT_TRUE(until([&] { return mWitness->published.size() == 2; }));
  const auto fresh = search();
  ASSERT_TRUE(untilThere("second"));
  EXPECT_EQ(mWitness->found.size(), 4U);  // two of them of the fresh search
  second->stop();
  ASSERT_TRUE(until([&] { return mWitness->removed.size() == 1 && mWitness->stopped == 1; }));
}

INSTANTIATE_TEST_SUITE_P(Services, DiscoveryContract,
                         testing::Values(DiscoveryKind::of<BuiltinSetting>("builtin"),
                                         DiscoveryKind::of<AvahiSetting>("avahi")),
                         test::kNameOfKind);

}  // namespace
}  // namespace velor::discovery
