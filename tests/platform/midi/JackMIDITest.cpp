// SPDX-License-Identifier: MIT
// Against a real server, and a client that knows nothing of this one.
#include "platform/midi/jack/JackMIDI.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/PacketList.h"
#include "tests/support/Servers.h"

namespace velor::midi {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

// Another program, with these inputs.
std::unique_ptr<test::JackPeer> peerWith(const char* name, const std::vector<std::string>& inputs) {
  auto peer = std::make_unique<test::JackPeer>(name);
  for (const std::string& each : inputs) {
    peer->addInput(each);
  }
  peer->activate();
  return peer;
}

// The service with a client and its output.
struct Service {
  Service() {
    table.MIDIClientCreate("Velor", nullptr, nullptr, &client);
    table.MIDIOutputPortCreate(client, "Velor Clock Out", &out);
  }
  MIDIObjectTable table{std::make_unique<JackMIDI>()};
  MIDIClientRef client = 0;
  MIDIPortRef out = 0;
};

class JackMIDITest : public testing::Test {
 protected:
  JackMIDITest() { mServer.start(); }

  void open() {
    mService = std::make_unique<Service>();
    mTable = &mService->table;
    mOut = mService->out;
  }

  // 0 when it is not there.
  MIDIEndpointRef find(bool source, const std::string& portName) {
    const std::size_t count =
        source ? mTable->MIDIGetNumberOfSources() : mTable->MIDIGetNumberOfDestinations();
    for (std::size_t i = 0; i < count; ++i) {
      const MIDIEndpointRef endpoint =
          source ? mTable->MIDIGetSource(i) : mTable->MIDIGetDestination(i);
      std::string name;
      mTable->MIDIObjectGetStringProperty(endpoint, kMIDIPropertyServerPort, &name);
      if (name == portName) {
        return endpoint;
      }
    }
    return 0;
  }

  // Waits for it: the server may take a moment to let us in.
  MIDIEndpointRef await(bool source, const std::string& portName) {
    test::waitFor(3, [&] { return find(source, portName) != 0; });
    return find(source, portName);
  }

  void send(MIDIEndpointRef destination, const PacketList& list) {
    EXPECT_EQ(mTable->MIDISend(mOut, destination, list.get()), 0);
  }

  static std::unique_ptr<test::JackPeer> makeDesk() { return peerWith("Desk", {"in"}); }
  std::uint64_t now() { return mHost.AudioGetCurrentHostTime(); }

  test::JackServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<Service> mService;
  MIDIObjectTable* mTable = nullptr;  // the service's
  MIDIPortRef mOut = 0;
};

TEST_F(JackMIDITest, EndpointsVanishWithTheirProgramOrTheServerAndKeepTheirIds) {
  open();
  std::int32_t known = 0;
  for (const bool isServersEnd : {false, true}) {
    auto desk = makeDesk();
    const MIDIEndpointRef destination = await(false, "Desk:in");
    ASSERT_NE(destination, 0U);
    std::int32_t id = 0;
    mTable->MIDIObjectGetIntegerProperty(destination, kMIDIPropertyUniqueID, &id);
    EXPECT_TRUE(!isServersEnd || id == known);
    known = id;
    if (isServersEnd) {
      mServer.kill();
    }
    desk.reset();
    EXPECT_TRUE(test::waitFor(3, [this] { return find(false, "Desk:in") == 0; }));
    EXPECT_EQ(mTable->MIDISend(mOut, destination, PacketList(0).get()), kMIDIUnknownEndpoint);
  }
}

// A jackd that is killed leaves our names for people to the ports that get our numbers.
TEST_F(JackMIDITest, NamesThatTheServersDeathLeftBehindAreNobodyElses) {
  open();
  auto desk = makeDesk();
  const MIDIEndpointRef destination = await(false, "Desk:in");
  ASSERT_NE(destination, 0U);
  send(destination, PacketList(0));  // makes the port of the pair
  ASSERT_TRUE(test::waitFor(3, [&] { return !desk->ports("Velor:.*").empty(); }));
  mServer.kill();
  desk.reset();
  ASSERT_TRUE(test::waitFor(3, [&] { return !mTable->isConnected(); }));
  mServer.start();
  const auto other = peerWith("Other", {"a", "b", "c", "d"});
  for (const char* name : {"Other:a", "Other:b", "Other:c", "Other:d"}) {
    const MIDIEndpointRef endpoint = await(false, name);
    std::string shown;
    EXPECT_TRUE(test::waitFor(3, [&] {
      mTable->MIDIObjectGetStringProperty(endpoint, kMIDIPropertyDisplayName, &shown);
      return shown == name;
    })) << shown;
  }
}

TEST_F(JackMIDITest, APortThatIsOpenedAgainAtOnceIsConnectedAgain) {
  test::JackPeer peer("Desk");
  peer.activate();
  peer.renew("in");
  open();
  send(await(false, "Desk:in"), PacketList(0));
  const auto isConnected = [&peer] {
    const auto own = peer.ports("Velor:Velor Clock Out.*");
    return own.size() == 1 && peer.isConnected(own[0], "Desk:in");
  };
  ASSERT_TRUE(test::waitFor(3, isConnected));
  for (int round = 0; round < 3; ++round) {
    peer.renew("in");
    EXPECT_TRUE(test::waitFor(2, isConnected));
  }
  test::waitFor(0.2, [] { return false; });  // nothing of the above is to come
  // What a person takes apart stays so, whatever else comes and goes.
  ASSERT_TRUE(peer.disconnect(peer.ports("Velor:Velor Clock Out.*").at(0), "Desk:in"));
  peer.renew("other");
  ASSERT_TRUE(test::waitFor(2, [this] { return find(false, "Desk:other") != 0; }));
  mTable->waitUntilSettled();
  EXPECT_FALSE(isConnected());
}

// A server opens a connection within two cycles, which last 85 ms here.
TEST(JackMIDIAtALargePeriod, PortsThatAreDueTogetherOpenTogetherAlsoWhenTheServerReturns) {
  test::inFairRun([] {
    constexpr std::size_t kPorts = 24;
    test::JackServer server(2048);
    server.start();
    host::SystemHost host;
    Service service;
    MIDIObjectTable& table = service.table;
    std::vector<std::string> inputs;
    for (std::size_t i = 0; i < kPorts; ++i) {
      inputs.push_back("in " + std::to_string(i));
    }
    for (const char* when : {"at the start", "after the server's return"}) {
      auto desk = peerWith("Desk", inputs);
      const auto areThere = [&] { return table.MIDIGetNumberOfDestinations() == kPorts; };
      std::uint64_t start = host.AudioGetCurrentHostTime();
      ASSERT_TRUE(test::waitFor(10, areThere));
      table.waitUntilSettled();
      if (desk->ports("Velor:.*").empty()) {
        start = host.AudioGetCurrentHostTime();
      }
      for (std::size_t i = 0; i < kPorts; ++i) {
        EXPECT_EQ(table.MIDISend(service.out, table.MIDIGetDestination(i), PacketList(0).get()), 0);
      }
      table.waitUntilSettled();
      const double seconds = static_cast<double>(host.AudioGetCurrentHostTime() - start) / 1e9;
      std::printf("%zu ports opened %s in %.2f s\n", kPorts, when, seconds);
      EXPECT_LT(seconds, 0.7) << when;
      EXPECT_TRUE(test::waitFor(1, [&] { return desk->recordedCount() == kPorts; })) << when;
      server.kill();
      ASSERT_TRUE(test::waitFor(1, [&] { return !table.isConnected(); }));
      desk.reset();
      server.start();
      ASSERT_TRUE(test::waitFor(5, [&] { return table.isConnected(); }));
    }
  });
}

TEST_F(JackMIDITest, APortGoesAfterItsLastPacketWhenSendingEndsAndTheNextSendOpensItAgain) {
  open();
  auto desk = makeDesk();
  const MIDIEndpointRef destination = await(false, "Desk:in");
  for (std::size_t round = 1; round <= 3; ++round) {
    send(destination, PacketList(now() + 100 * kMs, 0, 10 * kMs, 8));
    mTable->waitUntilSettled();
    EXPECT_EQ(desk->ports("Velor:Velor Clock Out > Desk/in").size(), 1U);
    mTable->endSending(mOut, destination);
    EXPECT_TRUE(test::waitFor(3, [&] { return desk->ports("Velor:.*").empty(); }));
    // All of them, each once: a buffer that is left unattended repeats its packets.
    EXPECT_EQ(desk->recordedCount(), 8 * round);
  }
  // One that is in use again before its last packet has gone stays.
  send(destination, PacketList(now() + 100 * kMs, 0, 10 * kMs, 8));
  mTable->endSending(mOut, destination);
  send(destination, PacketList(now() + 200 * kMs, 0, 10 * kMs, 8));
  test::waitFor(0.5, [] { return false; });
  EXPECT_EQ(desk->recordedCount(), 40U);
  EXPECT_EQ(desk->ports("Velor:.*").size(), 1U);
}

template <class Server>
class JackMIDIOnServer : public testing::Test {};
using Servers = testing::Types<test::JackServer, test::PipeWireServer>;
TYPED_TEST_SUITE(JackMIDIOnServer, Servers);

TYPED_TEST(JackMIDIOnServer, ConnectionsOfOthersToOurPortsOutlastTheServerAndNotTheirEnd) {
  TypeParam server;
  server.start();
  host::SystemHost host;
  Service service;
  MIDIObjectTable& table = service.table;
  MIDIEndpointRef endpoint = 0;
  table.MIDISourceCreate(service.client, "LTC Reader 1", &endpoint);
  table.MIDIDestinationCreate(
      service.client, "LTC Generator 1", [](const MIDIPacketList*, void*, void*) {}, nullptr,
      &endpoint);
  const std::string reader = "Velor:LTC Reader 1";
  const std::string generator = "Velor:LTC Generator 1";

  const auto openDesk = [] {
    auto desk = std::make_unique<test::JackPeer>("Desk");
    desk->addInput("kept");
    desk->addInput("taken apart");
    desk->addOutput("out");
    test::waitFor(0.1, [] { return false; });  // seen before it can be connected
    desk->activate();
    return desk;
  };
  const auto settle = [] { test::waitFor(0.3, [] { return false; }); };
  auto desk = openDesk();
  ASSERT_TRUE(test::waitFor(5, [&] {
    return desk->ports("Velor:.*").size() == 2 && desk->connect(reader, "Desk:kept") &&
           desk->connect(reader, "Desk:taken apart") && desk->connect("Desk:out", generator);
  }));
  settle();
  ASSERT_TRUE(desk->disconnect(reader, "Desk:taken apart"));
  settle();
  // The other program may be back long after us, or before.
  for (const bool isLast : {true, false}) {
    server.kill();
    ASSERT_TRUE(test::waitFor(5, [&] { return !table.isConnected(); }));
    desk.reset();
    server.start();
    if (isLast) {
      ASSERT_TRUE(test::waitFor(5, [&] { return table.isConnected(); }));
      settle();
    }
    desk = openDesk();
    EXPECT_TRUE(test::waitFor(5, [&] {
      return desk->isConnected(reader, "Desk:kept") && desk->isConnected("Desk:out", generator);
    }));
    settle();
    EXPECT_FALSE(desk->isConnected(reader, "Desk:taken apart"));
  }
  // A program that ends of its own has ended its connections.
  desk.reset();
  settle();
  desk = openDesk();
  settle();
  EXPECT_FALSE(desk->isConnected(reader, "Desk:kept"));
  EXPECT_FALSE(desk->isConnected("Desk:out", generator));
}

}  // namespace
}  // namespace velor::midi
