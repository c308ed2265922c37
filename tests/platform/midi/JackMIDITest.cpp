// SPDX-License-Identifier: MIT
// Against a real server, and a client that knows nothing of this one.
#include "platform/midi/jack/JackMIDI.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"

namespace velor::midi {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

class JackMIDITest : public testing::Test {
 protected:
  JackMIDITest() {
    mServer.enter();
    mServer.start();
  }

  void open() {
    mTable = std::make_unique<MIDIObjectTable>(std::make_unique<JackMIDI>());
    mTable->MIDIClientCreate("Velor", nullptr, nullptr, &mClient);
    mTable->MIDIOutputPortCreate(mClient, "Velor Clock Out", &mOut);
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

  MIDIUniqueID idOf(MIDIEndpointRef endpoint) {
    std::int32_t id = 0;
    mTable->MIDIObjectGetIntegerProperty(endpoint, kMIDIPropertyUniqueID, &id);
    return id;
  }

  void send(MIDIEndpointRef destination, MIDITimeStamp first, MIDITimeStamp spacing, int count) {
    alignas(MIDIPacketList) std::uint8_t room[1024];
    auto* list = reinterpret_cast<MIDIPacketList*>(room);
    MIDIPacket* packet = MIDIPacketListInit(list);
    for (int i = 0; i < count; ++i) {
      const std::uint8_t bytes[] = {0xF1, static_cast<std::uint8_t>(i)};
      packet = MIDIPacketListAdd(list, sizeof room, packet,
                                 first == 0 ? 0 : first + static_cast<std::uint64_t>(i) * spacing,
                                 2, bytes);
    }
    EXPECT_EQ(mTable->MIDISend(mOut, destination, list), 0);
  }

  std::uint64_t now() { return mHost.AudioGetCurrentHostTime(); }

  test::JackServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<MIDIObjectTable> mTable;
  MIDIClientRef mClient = 0;
  MIDIPortRef mOut = 0;
};

TEST_F(JackMIDITest, ListsArriveOnTheGridAtTheirTimesAndMessagesAtOnce) {
  test::JackPeer peer("Console");
  peer.addInput("in");
  peer.activate();
  open();
  const MIDIEndpointRef destination = await(false, "Console:in");
  ASSERT_NE(destination, 0U);
  send(destination, 0, 0, 1);  // the connection is made for it
  ASSERT_TRUE(test::waitFor(3, [&peer] { return peer.recordedCount() == 1; }));

  const std::uint64_t first = now() + 150 * kMs;
  send(destination, first, 10 * kMs, 8);
  ASSERT_TRUE(test::waitFor(3, [&peer] { return peer.recordedCount() == 9; }));
  const auto events = peer.recorded();
  const double sampleNs = 1e9 / peer.sampleRate();
  // The peer's idea of host time is off by its own wake-up, a fraction of a period.
  EXPECT_NEAR(static_cast<double>(peer.hostTimeAt(events[1].frame)) - static_cast<double>(first),
              0.0, test::JackServer::kPeriod * sampleNs);
  for (std::size_t i = 1; i < 9; ++i) {
    EXPECT_EQ(events[i].bytes, (std::vector<std::uint8_t>{0xF1, static_cast<std::uint8_t>(i - 1)}));
    EXPECT_EQ(events[i].frame - events[1].frame, (i - 1) * 480);
  }
}

struct Incoming {
  std::atomic<int> count{0};
  std::vector<MIDITimeStamp> stamps = std::vector<MIDITimeStamp>(64);
  static void read(const MIDIPacketList* packets, void* self, void*) {
    auto& incoming = *static_cast<Incoming*>(self);
    incoming.stamps[static_cast<std::size_t>(incoming.count)] = packets->packet[0].timeStamp;
    ++incoming.count;
  }
};

TEST_F(JackMIDITest, EventsComeInWithTheHostTimesOfTheirFrames) {
  test::JackPeer peer("Recorder");
  peer.addOutput("out");
  peer.addOutput("to virtual");
  peer.activate();
  open();
  Incoming viaPort;
  Incoming viaVirtual;
  MIDIPortRef in = 0;
  mTable->MIDIInputPortCreate(mClient, "Velor Sync In", &Incoming::read, &viaPort, &in);
  MIDIEndpointRef virtualDestination = 0;
  mTable->MIDIDestinationCreate(mClient, "LTC Generator 1", &Incoming::read, &viaVirtual,
                                &virtualDestination);
  ASSERT_EQ(mTable->MIDIPortConnectSource(in, await(true, "Recorder:out"), nullptr), 0);
  std::string synced;
  ASSERT_TRUE(test::waitFor(3, [&] {
    const auto own = peer.ports("Velor:.*Recorder.*");
    synced = own.empty() ? "" : own[0];
    return !synced.empty() && peer.isConnected("Recorder:out", synced) &&
           peer.connect("Recorder:to virtual", "Velor:LTC Generator 1");
  }));
  test::waitFor(0.1, [] { return false; });  // the connections take effect

  const std::uint64_t frame = peer.frameNow() + 9600;
  for (std::uint64_t i = 0; i < 16; ++i) {
    peer.sendAt(frame + i * 500, 0, {0xF1, 0x00});
    peer.sendAt(frame + i * 500, 1, {0xF1, 0x00});
  }
  ASSERT_TRUE(test::waitFor(5, [&] { return viaPort.count == 16 && viaVirtual.count == 16; }));
  // The server's idea of time wanders while cycles come late; a cycle is 5 ms.
  constexpr double kWander = 1e6;  // ns
  for (const Incoming* incoming : {&viaPort, &viaVirtual}) {
    for (std::size_t i = 1; i < 16; ++i) {
      const double spacing =
          static_cast<double>(incoming->stamps[i]) - static_cast<double>(incoming->stamps[0]);
      EXPECT_NEAR(spacing, static_cast<double>(i) * 500 * 1e9 / 48000, kWander);
    }
    EXPECT_NEAR(
        static_cast<double>(incoming->stamps[0]) - static_cast<double>(peer.hostTimeAt(frame)), 0.0,
        128 * 1e9 / 48000);
  }
}

TEST_F(JackMIDITest, EndpointsOfOtherClientsAppearAndVanishAndKeepTheirIds) {
  open();
  EXPECT_EQ(find(false, "Desk:in"), 0U);
  auto peer = std::make_unique<test::JackPeer>("Desk");
  peer->addInput("in");
  peer->activate();
  ASSERT_TRUE(test::waitFor(3, [this] { return find(false, "Desk:in") != 0; }));
  const MIDIEndpointRef destination = find(false, "Desk:in");
  const MIDIUniqueID id = idOf(destination);
  EXPECT_EQ(id, MIDIObjectTable::uniqueIDOfPort("Desk:in"));
  peer.reset();
  ASSERT_TRUE(test::waitFor(3, [this] { return find(false, "Desk:in") == 0; }));
  MIDIObjectRef found = 0;
  EXPECT_EQ(mTable->MIDIObjectFindByUniqueID(id, &found), kMIDIObjectNotFound);
  MIDIPacketList list;
  MIDIPacketListInit(&list);
  EXPECT_EQ(mTable->MIDISend(mOut, destination, &list), kMIDIUnknownEndpoint);
  peer = std::make_unique<test::JackPeer>("Desk");
  peer->addInput("in");
  peer->activate();
  ASSERT_TRUE(test::waitFor(3, [this] { return find(false, "Desk:in") != 0; }));
  EXPECT_EQ(idOf(find(false, "Desk:in")), id);
}

TEST_F(JackMIDITest, PortsAndConnectionsAreBackAfterTheServersDeath) {
  auto peer = std::make_unique<test::JackPeer>("Desk");
  peer->addInput("in");
  peer->activate();
  open();
  MIDIEndpointRef source = 0;
  mTable->MIDISourceCreate(mClient, "LTC Reader 1", &source);
  send(await(false, "Desk:in"), 0, 0, 1);
  ASSERT_TRUE(test::waitFor(3, [&peer] { return peer->recordedCount() == 1; }));

  for (int round = 0; round < 2; ++round) {
    mServer.kill();
    ASSERT_TRUE(test::waitFor(5, [this] { return find(false, "Desk:in") == 0; }));
    peer.reset();
    EXPECT_NE(mTable->serverDescription().find("no server"), std::string::npos);
    mServer.start();
    peer = std::make_unique<test::JackPeer>("Desk");
    peer->addInput("in");
    peer->activate();
    ASSERT_TRUE(test::waitFor(2, [this] { return find(false, "Desk:in") != 0; }));
    // The same port of ours, connected again without a word from above.
    ASSERT_TRUE(test::waitFor(2, [&peer] {
      const auto own = peer->ports("Velor:Velor Clock Out.*");
      return own.size() == 1 && peer->isConnected(own[0], "Desk:in");
    }));
    EXPECT_EQ(peer->ports("Velor:LTC Reader 1").size(), 1U);
    const std::uint64_t first = now() + 100 * kMs;
    send(find(false, "Desk:in"), first, 10 * kMs, 8);
    ASSERT_TRUE(test::waitFor(3, [&peer] { return peer->recordedCount() == 8; }));
    const auto events = peer->recorded();
    EXPECT_EQ(events[7].frame - events[0].frame, 7U * 480);
  }
}

TEST_F(JackMIDITest, APortThatIsOpenedAgainAtOnceIsConnectedAgain) {
  test::JackPeer peer("Desk");
  peer.activate();
  peer.renew("in");
  open();
  send(await(false, "Desk:in"), 0, 0, 1);
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

TEST_F(JackMIDITest, TheServersDeathIsSeenAtOnceHoweverManyPortsThereAre) {
  test::JackPeer peer("Desk");
  for (int i = 0; i < 16; ++i) {
    peer.addInput("in " + std::to_string(i));
  }
  peer.activate();
  open();
  for (int i = 0; i < 16; ++i) {
    send(find(false, "Desk:in " + std::to_string(i)), 0, 0, 1);
  }
  ASSERT_TRUE(test::waitFor(5, [&peer] { return peer.recordedCount() == 16; }));
  mServer.kill();
  EXPECT_TRUE(test::waitFor(1, [this] { return !mTable->isConnected(); }));
  ASSERT_TRUE(test::waitFor(10, [this] { return !mTable->isConnected(); }));
}

TEST_F(JackMIDITest, AChangeOfThePeriodLosesAndDoublesNothing) {
  test::JackPeer peer("Desk");
  peer.addInput("in");
  peer.activate();
  open();
  const MIDIEndpointRef destination = await(false, "Desk:in");
  send(destination, 0, 0, 1);
  ASSERT_TRUE(test::waitFor(3, [&peer] { return peer.recordedCount() == 1; }));
  for (const int period : {1024, 64, 256}) {
    const std::size_t before = peer.recordedCount();
    peer.setPeriod(period);
    send(destination, now() + 200 * kMs, 10 * kMs, 8);
    ASSERT_TRUE(test::waitFor(3, [&] { return peer.recordedCount() >= before + 8; }));
    const auto events = peer.recorded();
    ASSERT_EQ(events.size(), before + 8);
    EXPECT_EQ(events[before + 7].frame - events[before].frame, 7U * 480) << period;
  }
}

template <class Server>
class JackMIDIOnServer : public testing::Test {};
using Servers = testing::Types<test::JackServer, test::PipeWireServer>;
TYPED_TEST_SUITE(JackMIDIOnServer, Servers);

TYPED_TEST(JackMIDIOnServer, ConnectionsOfOthersToOurPortsOutlastTheServerAndNotTheirEnd) {
  TypeParam server;
  server.enter();
  server.start();
  host::SystemHost host;
  MIDIObjectTable table(std::make_unique<JackMIDI>());
  MIDIClientRef client = 0;
  MIDIEndpointRef endpoint = 0;
  table.MIDIClientCreate("Velor", nullptr, nullptr, &client);
  table.MIDISourceCreate(client, "LTC Reader 1", &endpoint);
  table.MIDIDestinationCreate(
      client, "LTC Generator 1", [](const MIDIPacketList*, void*, void*) {}, nullptr, &endpoint);
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

  const auto isAsBefore = [&] {
    return desk->isConnected(reader, "Desk:kept") && desk->isConnected("Desk:out", generator);
  };
  server.kill();
  ASSERT_TRUE(test::waitFor(5, [&] { return !table.isConnected(); }));
  desk.reset();
  server.start();
  // The other program may be back long after us, or before.
  for (const bool last : {true, false}) {
    if (last) {
      ASSERT_TRUE(test::waitFor(5, [&] { return table.isConnected(); }));
      settle();
    }
    desk = openDesk();
    EXPECT_TRUE(test::waitFor(5, isAsBefore));
    settle();
    EXPECT_FALSE(desk->isConnected(reader, "Desk:taken apart"));
    if (last) {
      server.kill();
      ASSERT_TRUE(test::waitFor(5, [&] { return !table.isConnected(); }));
      desk.reset();
      server.start();
    }
  }
  // A program that ends of its own has ended its connections.
  desk.reset();
  settle();
  desk = openDesk();
  settle();
  EXPECT_FALSE(desk->isConnected(reader, "Desk:kept"));
  EXPECT_FALSE(desk->isConnected("Desk:out", generator));
}

TEST(JackMIDIWithoutAServer, StartsSaysSoAndTakesOneUpWhenItAppears) {
  test::JackServer server;
  server.enter();
  host::SystemHost host;
  const std::uint64_t start = host.AudioGetCurrentHostTime();
  MIDIObjectTable table(std::make_unique<JackMIDI>());
  EXPECT_LT(host.AudioGetCurrentHostTime() - start, 1000 * kMs);
  EXPECT_NE(table.serverDescription().find("no server"), std::string::npos);
  server.start();
  EXPECT_TRUE(test::waitFor(
      3, [&table] { return table.serverDescription().find("JACK") != std::string::npos; }));
}

}  // namespace
}  // namespace velor::midi
