// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "tests/velor/osc/OSCFixture.h"

namespace velor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Calls = std::vector<std::string>;

constexpr std::uint16_t kPort = 7770;
constexpr const char* kDesk = "10.0.0.5";
constexpr std::uint64_t kSecond = 1'000'000'000;

class VLOSCServerTest : public OSCFixture {
 protected:
  VLOSCServerTest() { server().setDelegate(mApplication); }

  static VLOSCServer& server() { return VLOSCServer::sharedServer(); }

  void startForAll() {
    server().setFilterMode(VLOSCServer::kPromiscuousMode);
    ASSERT_TRUE(server().startUdPServerAtPort(kPort));
  }
  // The calls that a datagram leads to.
  Calls told(const Bytes& data, const std::string& host = kDesk) {
    arrive(host, kPort, data);
    return mApplication->take();
  }
  Calls told(const std::string& address, float value) { return told(oscMessage(address, value)); }

  static void tick(const std::string& host) {
    const auto entry = VLOSCHostFilterEntry::initWithAddress(host, {});
    entry->setEnabled(true);
    server().addHostFilterObject(entry);
  }
  // Fake host i.
  static std::string madeUp(unsigned i) {
    return "172.16." + std::to_string(i / 250) + "." + std::to_string(i % 250 + 1);
  }

  const std::shared_ptr<RecordingApplication> mApplication =
      std::make_shared<RecordingApplication>();
};

TEST_F(VLOSCServerTest, EachAddressIsACommandForOneFloatThatPassesItsTest) {
  startForAll();
  EXPECT_THAT(told("/velor/transport/play", 1), ElementsAre("play"));
  EXPECT_THAT(told("/velor/transport/stop", 0.1F), ElementsAre("stop"));
  EXPECT_THAT(told("/velor/marker/add", 1), ElementsAre("add"));
  EXPECT_THAT(told("/velor/speed", -5), ElementsAre("rate -5.000000"));
  EXPECT_THAT(told("/velor/speed", 0), ElementsAre("rate 0.000000"));
  for (const float next : {1.0F, 0.5F, 1.4F}) {
    EXPECT_THAT(told("/velor/marker/goto", next), ElementsAre("next")) << next;
    EXPECT_THAT(told("/velor/marker/goto", -next), ElementsAre("previous")) << next;
  }
  for (const float nowhere :
       {0.0F, 0.4F, 1.6F, 2.0F, std::nanf(""), 1e30F, std::numeric_limits<float>::infinity(),
        std::numeric_limits<float>::denorm_min()}) {
    EXPECT_THAT(told("/velor/marker/goto", nowhere), IsEmpty()) << nowhere;
  }
  for (const char* address :
       {"/velor/transport/play", "/velor/transport/stop", "/velor/marker/add"}) {
    EXPECT_THAT(told(address, 0), IsEmpty());
    EXPECT_THAT(told(address, -1), IsEmpty());
    EXPECT_THAT(told(oscMessage(address, ",i", {1})), IsEmpty());
    EXPECT_THAT(told(oscMessage(address, ",T", {})), IsEmpty());
    EXPECT_THAT(told(oscMessage(address, ",", {})), IsEmpty());
    EXPECT_THAT(told(oscMessage(address, ",ff", {0x3F800000, 0x3F800000})), IsEmpty());
  }
  for (const char* address : {"/velor", "/velor/transport", "/velor/transport/pl",
                              "/velor/transportfoo", "/velor/time", "/speed"}) {
    EXPECT_THAT(told(address, 1), IsEmpty()) << address;
  }
  // Two commands go to the clock, and switch off at or below zero.
  const VLClock& clock = VLClock::sharedClock();
  for (const auto& [value, isOn] :
       {std::pair(1.0F, true), {0.0F, false}, {0.5F, true}, {-1.0F, false}}) {
    told("/velor/preroll", value);
    told("/velor/arm", value);
    EXPECT_EQ(clock.preroll(), isOn);
    EXPECT_EQ(clock.armed(), isOn);
  }
}

TEST_F(VLOSCServerTest, APatternGivesTheFirstCommandThatMatchesInItsBranch) {
  startForAll();
  EXPECT_THAT(told("/velor/transport/pl?y", 1), ElementsAre("play"));
  EXPECT_THAT(told("/velor/transport/{stop,play}", 1), ElementsAre("play"));
  EXPECT_THAT(told("/velor/marker/*", 1), ElementsAre("next"));
  EXPECT_THAT(told("/velor/marker/*", 0), IsEmpty());
  EXPECT_THAT(told("/velor/*", 1), IsEmpty()) << "begins in the transport branch";
  EXPECT_THAT(told("/velor/s[o-q]e*", 1), ElementsAre("rate 1.000000"));
  EXPECT_FALSE(VLClock::sharedClock().armed());
}

TEST_F(VLOSCServerTest, ABundleActsAtOnceInOrderAndNotAtAllWithABadElement) {
  startForAll();
  const Bytes play = oscMessage("/velor/transport/play", 1);
  const Bytes rate = oscMessage("/velor/speed", 1);
  const Bytes stop = oscMessage("/velor/transport/stop", 1);
  constexpr std::uint64_t kInTheYear2100 = 6'311'433'600ULL << 32U;
  EXPECT_THAT(told(oscBundle(kInTheYear2100, {play, rate, stop})),
              ElementsAre("play", "rate 1.000000", "stop"));
  const Bytes unknown = oscMessage("/velor/speed", ",c", {1});
  EXPECT_THAT(told(oscBundle(1, {play, rate, stop, unknown})), IsEmpty());
  EXPECT_THAT(told(oscBundle(1, {play, oscMessage("/elsewhere", 1), stop})),
              ElementsAre("play", "stop"));
}

TEST_F(VLOSCServerTest, ARefusedHostIsListedOnceAndObeyedWhileItIsTicked) {
  ASSERT_TRUE(server().startUdPServerAtPort(kPort));
  unsigned changes = 0;
  const auto token = server().addObserver("hostFilter", [&](const auto&) { ++changes; });
  const Bytes play = oscMessage("/velor/transport/play", 1);
  EXPECT_THAT(told(play), IsEmpty());
  EXPECT_THAT(listedHosts(), ElementsAre("-10.0.0.5"));
  EXPECT_THAT(told(play), IsEmpty());
  mHost.advance(kSecond);
  EXPECT_EQ(changes, 1U);
  const auto first = server().objectInHostFilterAtIndex(0);
  first->setEnabled(true);
  EXPECT_THAT(told(play), ElementsAre("play"));
  EXPECT_THAT(told(play, "10.0.0.50"), IsEmpty());
  first->setEnabled(false);
  EXPECT_THAT(told(play), IsEmpty());

  // Removing one of two entries refuses the host.
  first->setEnabled(true);
  tick(kDesk);
  EXPECT_THAT(told(play), ElementsAre("play"));
  server().removeHostFilterObject(first);
  EXPECT_THAT(told(play), IsEmpty());
  first->setEnabled(true);  // not in the list, so without effect
  EXPECT_THAT(told(play), IsEmpty());
  mHost.advance(kSecond);
  EXPECT_THAT(listedHosts(), ElementsAre("-10.0.0.50", "+10.0.0.5"));
}

TEST_F(VLOSCServerTest, AFloodFromMadeUpHostsKeepsTheLatestOfThemAndAllThatAreTicked) {
  ASSERT_TRUE(server().startUdPServerAtPort(kPort));
  tick(kDesk);
  unsigned changes = 0;
  const auto token = server().addObserver("hostFilter", [&](const auto&) { ++changes; });
  const Bytes play = oscMessage("/velor/transport/play", 1);
  constexpr unsigned kHosts = 2000;
  for (unsigned i = 0; i < kHosts; ++i) {
    EXPECT_THAT(told(play, madeUp(i)), IsEmpty());
    if (i == 300) {  // the user ticks one of them
      mHost.advance(kSecond);
      server().objectInHostFilterAtIndex(100)->setEnabled(true);
    }
  }
  mHost.advance(kSecond);
  const auto rows = listedHosts();
  ASSERT_EQ(rows.size(), 2 + VLOSCServer::kMostUntickedEntries);
  EXPECT_EQ(rows[0], "+10.0.0.5");
  EXPECT_EQ(rows[1], "+" + madeUp(300 - 256 + 100));
  for (unsigned i = 0; i < VLOSCServer::kMostUntickedEntries; ++i) {
    ASSERT_EQ(rows[2 + i], "-" + madeUp(kHosts - 256 + i));
  }
  EXPECT_LT(changes, 10U);  // in the whole flood
  EXPECT_THAT(told(play), ElementsAre("play"));
  // A dropped host returns with its next datagram.
  EXPECT_THAT(told(play, madeUp(5)), IsEmpty());
  mHost.advance(kSecond);
  EXPECT_EQ(listedHosts().back(), "-" + madeUp(5));
}

TEST_F(VLOSCServerTest, CommandsBeyondABusyMainQueueWaitAndNoneIsLost) {
  startForAll();
  // The main queue does not run meanwhile, as with a busy user interface.
  constexpr unsigned kDatagrams = 150;
  constexpr unsigned kMessages = 20;
  unsigned sent = 0;
  for (unsigned i = 0; i < kDatagrams; ++i) {
    Bytes bundle = oscBundle(1, {});
    for (unsigned m = 0; m < kMessages; ++m) {
      const Bytes message = oscMessage("/velor/speed", static_cast<float>(sent++));
      appendWord(bundle, static_cast<std::uint32_t>(message.size()));
      bundle.insert(bundle.end(), message.begin(), message.end());
    }
    ASSERT_TRUE(mNetwork.arrive(*SocketAddress::fromText(kDesk, 50'000),
                                SocketAddress::wildcard(AF_INET, kPort), bundle));
  }
  mHost.settle();
  ASSERT_EQ(mApplication->calls.size(), kDatagrams * kMessages);
  for (unsigned i = 0; i < sent; ++i) {
    ASSERT_EQ(mApplication->calls[i], "rate " + std::to_string(static_cast<float>(i)));
  }
}

TEST_F(VLOSCServerTest, TickedHostsAndRunningOutliveARestartButNotTheFilterMode) {
  tick(kDesk);
  ASSERT_TRUE(server().startUdPServerAtPort(kPort));
  told(oscMessage("/velor/speed", 1), "10.0.0.6");
  server().setFilterMode(VLOSCServer::kPromiscuousMode);
  const auto settings = server().settingsDictionary().value();

  KVSharedInstances::clear();
  server().setDelegate(mApplication);
  ASSERT_TRUE(server().loadSettingsDictionary(*settings));
  mHost.settle();
  EXPECT_THAT(listedHosts(), ElementsAre("+10.0.0.5"));
  EXPECT_THAT(told("/velor/transport/play", 1), ElementsAre("play"));
  EXPECT_THAT(told(oscMessage("/velor/transport/play", 1), "10.0.0.6"), IsEmpty());
  mHost.advance(kSecond);
  EXPECT_THAT(listedHosts(), ElementsAre("+10.0.0.5", "-10.0.0.6"));
  const auto replaced = server().objectInHostFilterAtIndex(1);
  ASSERT_TRUE(server().loadSettingsDictionary(*settings));
  mHost.advance(kSecond);
  replaced->setEnabled(true);
  EXPECT_THAT(told(oscMessage("/velor/transport/play", 1), "10.0.0.6"), IsEmpty());
  server().stop();
  EXPECT_FALSE(server().settingsDictionary().value()->running);

  VLOSCServerSettings damaged = *settings;
  damaged.hostFilter[0] = '?';
  EXPECT_EQ(server().loadSettingsDictionary(damaged).error().code, kGCDAsyncUdpSocketOtherError);
  EXPECT_FALSE(server().running());
  EXPECT_EQ(listedHosts().size(), 2U);
}

TEST_F(VLOSCServerTest, RunningAndURLFollowStartStopAndATakenPort) {
  EXPECT_FALSE(server().running());
  EXPECT_EQ(server().url(), std::nullopt);
  std::vector<bool> seen;
  const auto token =
      server().addObserver("url", [&](const auto&) { seen.push_back(server().running()); });
  ASSERT_TRUE(server().startUdPServerAtPort(kPort));
  EXPECT_EQ(server().url(), "osc.udp://0.0.0.0:7770/");
  server().stop();
  EXPECT_EQ(server().url(), std::nullopt);
  arrive(kDesk, kPort, oscMessage("/velor/transport/play", 1));
  mHost.advance(kSecond);
  EXPECT_THAT(mApplication->calls, IsEmpty());
  EXPECT_THAT(listedHosts(), IsEmpty());

  const auto listener = std::make_shared<GCDAsyncUdpSocketDelegate>();
  const auto other = GCDAsyncUdpSocket::initWithDelegate(listener, &mHost.mainQueue());
  ASSERT_TRUE(other->bindToPort(kPort));
  EXPECT_EQ(server().startUdPServerAtPort(kPort).error().code, EADDRINUSE);
  EXPECT_FALSE(server().running());
  EXPECT_THAT(seen, ElementsAre(true, false, false));
  other->close();
}

}  // namespace
}  // namespace velor
