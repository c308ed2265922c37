// SPDX-License-Identifier: MIT
// With a real daemon and Avahi's own tools as peers.
#include "platform/discovery/avahi/AvahiDiscovery.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>

#include "platform/host/SystemHost.h"
#include "tests/platform/discovery/DiscoveryWitness.h"
#include "tests/support/Until.h"

namespace velor::discovery {
namespace {

class AvahiDiscoveryTest : public testing::Test {
 protected:
  AvahiDiscoveryTest() {
    mServer.start();
    mDiscovery = std::make_unique<AvahiDiscovery>();
    setService(mDiscovery.get());
  }

  std::shared_ptr<NSNetService> publish(const std::string& uid) {
    auto service = NSNetService::initWithDomain("local", "_osc._udp.", "Velor-OSC", 7770);
    service->setDelegate(mWitness);
    EXPECT_TRUE(service->setTXTRecordData(record(uid)));
    service->publishWithOptions(0);
    return service;
  }
  static DiscoveryTXTData record(const std::string& uid) {
    return NSNetService::dataFromTXTRecordDictionary(
        {{"uid", std::vector<std::uint8_t>(uid.begin(), uid.end())}});
  }
  std::shared_ptr<NSNetServiceBrowser> search() { return DiscoveryWitness::search(mWitness); }
  // The service of that name, once it has come and been resolved.
  std::shared_ptr<NSNetService> resolved(const std::string& name) {
    EXPECT_TRUE(until([&] { return mWitness->presentOfName(name) != nullptr; }));
    const auto found = mWitness->presentOfName(name);
    found->setDelegate(mWitness);
    found->resolveWithTimeout(10);
    EXPECT_TRUE(until([&] { return mWitness->resolved.size() == 1; }));
    return found;
  }
  static bool until(const std::function<bool()>& condition) { return test::until(15, condition); }
  // What avahi-browse sees now, a line per service.
  std::string seenByPeer() {
    const std::string path = mFolder.path().string() + "/seen-" + std::to_string(++mLooks);
    test::Process peer({"avahi-browse", "-rpt", "_osc._udp"}, mServer.environment(), path);
    EXPECT_EQ(peer.waitForEnd(15), 0);
    return test::fileContents(path);
  }
  test::Process publishingPeer(const std::string& name) {
    return test::Process({"avahi-publish", "-s", name, "_osc._udp", "9001", "uid=peer"},
                         mServer.environment(), mFolder.path().string() + "/peer.log");
  }

  test::TemporaryFolder mFolder;
  int mLooks = 0;
  test::AvahiServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<AvahiDiscovery> mDiscovery;
  const std::shared_ptr<DiscoveryWitness> mWitness = std::make_shared<DiscoveryWitness>();
};

// A restarted program would otherwise take its own last run for another program.
TEST_F(AvahiDiscoveryTest, AServiceThatHasJustSaidGoodbyeIsNotFound) {
  auto before = publishingPeer("Velor-OSC");
  ASSERT_TRUE(test::waitFor(10, [&] { return seenByPeer().find(";9001;") != std::string::npos; }));
  before.end(SIGTERM);
  const auto ours = publish("ours");
  const auto browser = search();
  const auto found = resolved("Velor-OSC");
  EXPECT_EQ(found->TXTRecordData(), record("ours"));
  EXPECT_EQ(found->hostName(), "127.0.0.1");
  EXPECT_EQ(mWitness->found.size(), 1U);
  EXPECT_TRUE(mWitness->removed.empty());
}

TEST_F(AvahiDiscoveryTest, AHostWithoutIPv4IsResolvedToItsOtherAddress) {
  const std::string log = mFolder.path().string() + "/six.log";
  const test::Process host({"avahi-publish", "-a", "-R", "six.local", "::1"}, mServer.environment(),
                           log);
  const test::Process peer({"avahi-publish", "-s", "-H", "six.local", "Six", "_osc._udp", "9001"},
                           mServer.environment(), log);
  const auto browser = search();
  EXPECT_EQ(resolved("Six")->hostName(), "::1");
}

TEST_F(AvahiDiscoveryTest, PublicationAndSearchOutliveTheSystemBus) {
  const auto ours = publish("1234");
  const auto browser = search();
  ASSERT_TRUE(until([&] { return mWitness->presentOfName("Velor-OSC") != nullptr; }));
  const std::string line =
      "=;lo;IPv4;Velor-OSC;_osc._udp;local;velor-test.local;127.0.0.1;7770;\"uid=1234\"";
  EXPECT_NE(seenByPeer().find(line), std::string::npos);
  mServer.kill();
  mServer.killBus();
  ASSERT_TRUE(until([&] { return mWitness->present.empty(); }));
  mServer.start();
  auto peer = publishingPeer("Console");
  ASSERT_TRUE(until([&] {
    return mWitness->presentOfName("Velor-OSC") != nullptr &&
           mWitness->presentOfName("Console") != nullptr;
  }));
  EXPECT_NE(seenByPeer().find(line), std::string::npos);
  ours->stop();
  EXPECT_TRUE(
      test::waitFor(10, [&] { return seenByPeer().find("Velor-OSC") == std::string::npos; }));
}

}  // namespace
}  // namespace velor::discovery
