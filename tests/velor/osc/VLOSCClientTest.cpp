// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "kvtimecode/ltc_utils.h"
#include "oscpkt/src/oscpkt.h"
#include "tests/support/LogRecord.h"
#include "tests/velor/osc/OSCFixture.h"

namespace velor {
namespace {

using discovery::NSNetService;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kSeen = discovery::BuiltinDiscovery::kProbing + 1;

// A message of one argument as a line: "/velor/arm 1", "/velor/time 01:00:00:00".
std::string lineOf(const Bytes& data) {
  oscpkt::OscPacketReader reader(data.data(), data.size());
  const oscpkt::Message& message = *reader.popMessage();
  float value = 0;
  if (message.fullMatch(message.address()).popFloat(value).isFullyRead()) {
    return (std::ostringstream() << message.address() << " " << value).str();
  }
  const auto at = static_cast<std::ptrdiff_t>(message.argumentSpans().at(0).first);
  return message.address() + " " +
         std::string(data.begin() + at, std::find(data.begin() + at, data.end(), 0));
}

class VLOSCClientTest : public OSCFixture {
 protected:
  static VLOSCClientDispatcher& dispatcher() { return VLOSCClientDispatcher::sharedDispatcher(); }
  static VLClock& clock() { return VLClock::sharedClock(); }

  static std::shared_ptr<VLUserDefinedOSCClient> add(const std::string& host) {
    const auto client = VLUserDefinedOSCClient::initWithUdpHost(host, 9000);
    dispatcher().addClient(client);
    return client;
  }
  // The messages to this host since the last call, one line each.
  Lines sentTo(const std::string& host) {
    mHost.settle();
    Lines lines;
    for (const auto& datagram : mNetwork.takeSent()) {
      if (datagram.to == *SocketAddress::fromText(host, 9000)) {
        lines.push_back(lineOf(datagram.data));
      }
    }
    return lines;
  }
  struct Application final : RecordingApplication {
    void setPlayRate(float percent) override {
      clock().setPlayRatePercent(static_cast<double>(percent));
    }
  };

  static SMPTETime timeAt(int hours) {
    SMPTETime time{};
    time.mType = kSMPTETimeType25;
    ltc_set_time(time, hours, 0, 0, 0);
    return time;
  }
  static std::vector<std::uint16_t> ports() {
    std::vector<std::uint16_t> all;
    for (const auto& client : dispatcher().clients()) {
      all.push_back(client->port());
    }
    return all;
  }
  static std::shared_ptr<NSNetService> publish(const std::string& name, std::uint16_t port,
                                               const std::string& uid) {
    auto service = NSNetService::initWithDomain("local", "_osc._udp.", name, port);
    service->setTXTRecordData(NSNetService::dataFromTXTRecordDictionary(
        {{"uid", std::vector<std::uint8_t>(uid.begin(), uid.end())}}));
    service->publishWithOptions(0);
    return service;
  }
};

TEST_F(VLOSCClientTest, ANewTargetGetsTheStateInOrderAndThenEachChange) {
  add("10.0.0.8");
  EXPECT_THAT(sentTo("10.0.0.8"),
              ElementsAre("/velor/speed 0", "/velor/transport/play 0", "/velor/transport/stop 1"));
  clock().setTime(timeAt(10));
  EXPECT_THAT(sentTo("10.0.0.8"), ElementsAre("/velor/time 10:00:00:00"));
  clock().setPlayRate(0.99);
  clock().setPreroll(true);
  clock().arm();
  // Arming changes the status as well.
  EXPECT_THAT(sentTo("10.0.0.8"),
              ElementsAre("/velor/speed -1", "/velor/preroll 1", "/velor/arm 1",
                          "/velor/transport/play 0", "/velor/transport/stop 1"));
  clock().disarm();
  clock().start();
  mHost.settle();
  mNetwork.takeSent();
  add("10.0.0.9");
  EXPECT_THAT(sentTo("10.0.0.9"),
              ElementsAre("/velor/speed -1", "/velor/transport/play 1", "/velor/transport/stop 0",
                          "/velor/time 10:00:00:00"));
  clock().stop();
  EXPECT_THAT(sentTo("10.0.0.9"),
              ElementsAre("/velor/transport/play 0", "/velor/transport/stop 1"));
  dispatcher().updateTime(SMPTETime{});
  EXPECT_THAT(sentTo("10.0.0.9"), ElementsAre("/velor/time --:--:--:--"));
}

// Otherwise a target that returns what it gets would get it again and again. A command that
// the clock clamps or refuses is answered, since the sender shows the value that it sent.
TEST_F(VLOSCClientTest, TargetsGetChangesAndTheResultsOfRefusedCommands) {
  VLOSCServer& server = VLOSCServer::sharedServer();
  const auto application = std::make_shared<Application>();
  server.setDelegate(application);
  add("10.0.0.8");
  const auto speed = [](double percent) { clock().setPlayRatePercent(percent); };
  const auto preroll = [](double on) { clock().setPreroll(on != 0); };
  const auto arm = [](double on) { on != 0 ? clock().arm() : clock().disarm(); };
  const auto speedCommand = [&](double percent) {
    server.commandFromAddressChangePlaybackSpeed({}, static_cast<float>(percent));
  };
  const auto prerollCommand = [&](double on) {
    server.commandFromAddressChangePrerollStatus({}, on != 0);
  };
  const auto armCommand = [&](double on) { server.commandFromAddressChangeArmed({}, on != 0); };
  struct Step {
    std::function<void(double)> act;
    double value;
    std::string sent;
  };
  int index = 0;
  for (const Step& step : std::initializer_list<Step>{
           {speed, 0, "/velor/speed 0"},  // no target knows the rate before the first change
           {speed, 0, ""},
           {speed, 1.5, "/velor/speed 1.5"},
           {preroll, 1, "/velor/preroll 1"},
           {preroll, 1, ""},
           {prerollCommand, 0, "/velor/preroll 0"},
           {arm, 1, "/velor/arm 1"},
           {arm, 0, "/velor/arm 0"},
           {speedCommand, 5, "/velor/speed 2"},
           {speedCommand, 7, "/velor/speed 2"},
           {speedCommand, 2, ""},
           {armCommand, 1, "/velor/arm 1"},
           {armCommand, 1, ""},
           {armCommand, 0, "/velor/arm 0"},
           {[](double) { clock().start(); }, 0, ""},
           {armCommand, 1, "/velor/arm 0"},
           {armCommand, 1, "/velor/arm 0"},
           {armCommand, 0, ""}}) {
    sentTo("10.0.0.8");
    step.act(step.value);
    Lines lines = sentTo("10.0.0.8");
    std::erase_if(lines, [](const auto& line) { return line.starts_with("/velor/t"); });
    EXPECT_EQ(lines, step.sent.empty() ? Lines() : Lines{step.sent}) << "step " << index;
    ++index;
  }
  clock().stop();
}

TEST_F(VLOSCClientTest, ADisabledTargetGetsNothingAndTheStateWhenEnabledAgain) {
  const auto client = add("10.0.0.9");
  clock().setTime(timeAt(1));
  sentTo("10.0.0.9");
  client->setEnabled(false);
  clock().setTime(timeAt(2));
  clock().setPreroll(true);
  EXPECT_THAT(sentTo("10.0.0.9"), IsEmpty());
  client->setEnabled(true);
  EXPECT_THAT(sentTo("10.0.0.9"),
              ElementsAre("/velor/speed 0", "/velor/transport/play 0", "/velor/transport/stop 1",
                          "/velor/time 02:00:00:00"));
}

TEST_F(VLOSCClientTest, ATargetFollowsItsHostAndPortAndOutlivesABadHost) {
  mNetwork.addHost("desk.local", {*SocketAddress::fromText("10.0.0.9", 0)}, 2 * kSecond);
  const auto client = add("desk.local");
  EXPECT_FALSE(client->connected());
  mHost.advance(2 * kSecond);
  EXPECT_TRUE(client->connected());
  EXPECT_EQ(client->port(), 9000);
  EXPECT_EQ(sentTo("10.0.0.9").size(), 3U);  // they waited for the name
  client->setPort(9001);
  mHost.advance(2 * kSecond);
  EXPECT_EQ(client->port(), 9001);
  client->setNilValueForKey("port");
  mHost.advance(2 * kSecond);
  EXPECT_EQ(client->port(), 9000);
  EXPECT_TRUE(client->connected());  // in spite of the reports of closed sockets
  client->setHost("nobody.local");
  mHost.advance(2 * kSecond);
  EXPECT_FALSE(client->connected());
  client->setHost(std::nullopt);
  EXPECT_EQ(client->host(), std::nullopt);
  clock().setTime(timeAt(1));
  mHost.settle();
  EXPECT_THAT(mNetwork.takeSent(), IsEmpty());
}

TEST_F(VLOSCClientTest, ATargetReconnectsAndGetsTheStateWhenTheMachineChangesItsAddress) {
  using Call = SimulatedUDPNetwork::Call;
  const auto client = add("10.0.0.9");
  sentTo("10.0.0.9");
  for (const int fault : {EINVAL, ENETUNREACH}) {
    clock().setTime(timeAt(1));
    sentTo("10.0.0.9");
    const auto former = mNetwork.openDescriptors();
    mNetwork.failNext(Call::send, fault);
    clock().setTime(timeAt(2));
    mHost.settle();
    EXPECT_FALSE(client->connected());
    mHost.advance(kSecond);
    EXPECT_TRUE(client->connected());
    EXPECT_EQ(mNetwork.openDescriptors(), former);
    EXPECT_EQ(sentTo("10.0.0.9").back(), "/velor/time 02:00:00:00");
  }
  // Errors of one datagram or of the destination change nothing.
  for (const int fault : {EHOSTUNREACH, EMSGSIZE, ENOBUFS}) {
    mNetwork.failNext(Call::send, fault);
    clock().setTime(timeAt(3));
    mHost.advance(10 * kSecond);
    EXPECT_THAT(sentTo("10.0.0.9"), IsEmpty()) << fault;
  }
}

// Found and entered targets, over starts without a network.
TEST_F(VLOSCClientTest, TargetsOutliveRestartsAndConnectWhenTheyCan) {
  using Call = SimulatedUDPNetwork::Call;
  add("desk.local");
  const auto found = VLOSCClient::initWithUdpHost("10.0.0.8", 9000);
  found->setServiceName("Desk");
  dispatcher().addClient(found);
  const auto off = VLOSCClient::initWithUdpHost("10.0.0.7", 9000);
  dispatcher().addClient(off);
  mHost.settle();
  off->setEnabled(false);
  std::string data;
  for (int start = 0; start < 2; ++start) {
    data = dispatcher().settingsData().value();
    KVSharedInstances::clear();
    mHost.settle();
    mNetwork.failNext(Call::connect, ENETUNREACH);
    ASSERT_TRUE(dispatcher().loadSettingsFromData(data));
    mHost.settle();
    EXPECT_THAT(ports(), ElementsAre(0, 0, 9000));
  }
  const auto clients = dispatcher().clients();
  EXPECT_TRUE(clients[0]->userDefinedHost());
  EXPECT_FALSE(clients[1]->userDefinedHost());
  EXPECT_EQ(clients[1]->serviceName(), "Desk");
  EXPECT_FALSE(clients[2]->enabled());
  EXPECT_FALSE(clients[2]->alive());  // connected, not found yet
  mNetwork.takeSent();
  const LogRecord log;
  mHost.advance(60 * kSecond);
  EXPECT_THAT(ports(), ElementsAre(0, 9000, 9000));
  EXPECT_EQ(sentTo("10.0.0.8").size(), 3U) << "its state";
  EXPECT_LT(log.matching("").size(), 5U) << "for a dozen attempts at the other";
  mNetwork.addHost("desk.local", {*SocketAddress::fromText("10.0.0.9", 0)});
  mHost.advance(VLOSCClient::kReconnectInterval);
  EXPECT_EQ(ports()[0], 9000);
  EXPECT_EQ(sentTo("10.0.0.9").size(), 3U);
  clients[1]->setAlive(true);
  EXPECT_EQ(sentTo("10.0.0.8").size(), 3U);

  data.replace(data.find("9000"), 4, "90000");
  EXPECT_EQ(dispatcher().loadSettingsFromData(data).error().text,
            "root[0].osc.client.stored_port: 90000 is not a port");
  EXPECT_THAT(dispatcher().clients(), IsEmpty());
}

TEST_F(VLOSCClientTest, OurOwnServiceIsNotATargetAndAnotherReturnsToItsRow) {
  ASSERT_TRUE(VLOSCServer::sharedServer().startUdPServerAtPort(7770));
  dispatcher();
  mHost.advance(kSeen);
  EXPECT_THAT(dispatcher().clients(), IsEmpty());

  // Another instance on this machine has the same name, another port and uid.
  auto other = publish("Velor-OSC", 7771, "another");
  mHost.advance(kSeen);
  ASSERT_THAT(ports(), ElementsAre(7771));
  const auto client = dispatcher().clients()[0];
  // The uid decides, as for a service of another machine at the same port.
  const auto remote = publish("Elsewhere", 7770, "another");
  mHost.advance(kSeen);
  EXPECT_THAT(ports(), ElementsAre(7771, 7770));

  other.reset();
  mHost.settle();
  EXPECT_FALSE(client->alive());
  EXPECT_EQ(client->statusImage(), VLOSCClientStatusImage::unavailable);
  other = publish("Velor-OSC", 7771, "a third");
  mHost.advance(kSeen);
  EXPECT_THAT(ports(), ElementsAre(7771, 7770));
  EXPECT_TRUE(client->alive());
  EXPECT_EQ(client->statusImage(), VLOSCClientStatusImage::available);

  // The same name at another port is the same service.
  other.reset();
  mHost.settle();
  other = publish("Velor-OSC", 7773, "a fourth");
  mHost.advance(kSeen);
  EXPECT_THAT(ports(), ElementsAre(7773, 7770));
  EXPECT_TRUE(client->alive());

  // The new publication of a restarted server is our own as well.
  VLOSCServer::sharedServer().stop();
  ASSERT_TRUE(VLOSCServer::sharedServer().startUdPServerAtPort(7772));
  mHost.advance(2 * kSeen);
  EXPECT_THAT(ports(), ElementsAre(7773, 7770));
}

TEST_F(VLOSCClientTest, AFloodOfServicesFillsTheListToItsBoundAndAbsentOnesGoFirst) {
  constexpr std::size_t kMost = VLOSCClientDispatcher::kMostFoundClients;
  dispatcher();
  std::vector<std::shared_ptr<NSNetService>> services;
  std::uint16_t port = 20'000;
  const auto flood = [&](const std::string& name, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      services.push_back(publish(name + std::to_string(i), ++port, "x"));
    }
    mHost.advance(kSeen);
  };
  flood("absent", kMost - 1);
  services.clear();
  mHost.settle();
  const auto console = publish("console", 9000, "c");
  mHost.advance(kSeen);
  add("10.0.0.8");
  const std::size_t descriptors = mNetwork.openDescriptors();
  flood("present", 1200);
  EXPECT_EQ(dispatcher().clients().size(), kMost + 1);
  EXPECT_EQ(mNetwork.openDescriptors(), descriptors);
  const auto clients = dispatcher().clients();
  EXPECT_EQ(clients[0]->serviceName(), "console");
  EXPECT_TRUE(clients[1]->userDefinedHost());
  for (std::size_t i = 2; i < clients.size(); ++i) {
    EXPECT_TRUE(clients[i]->isPresent());
  }
}

}  // namespace
}  // namespace velor
