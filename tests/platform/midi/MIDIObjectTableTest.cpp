// SPDX-License-Identifier: MIT
#include "platform/midi/builtin/MIDIObjectTable.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "sim/SimulatedHost.h"
#include "tests/support/FakeOutside.h"
#include "tests/support/PacketList.h"

namespace velor::midi {
namespace {

struct Listener {
  static void notify(const MIDINotification* notification, void* self) {
    static_cast<Listener*>(self)->messages.push_back(notification->messageID);
  }
  std::vector<int> messages;
};

class MIDIObjectTableTest : public testing::Test {
 protected:
  MIDIClientRef makeClient(Listener& listener) {
    MIDIClientRef client = 0;
    EXPECT_EQ(mTable.MIDIClientCreate("client", &Listener::notify, &listener, &client), 0);
    return client;
  }

  host::SimulatedHost mHost;
  FakeOutside* mOutside = new FakeOutside;
  MIDIObjectTable mTable{std::unique_ptr<MIDIOutside>(mOutside)};
};

TEST_F(MIDIObjectTableTest, ADisposedClientTakesAllThatIsItsOwnAlongAndNothingElse) {
  Listener listener;
  const MIDIClientRef mine = makeClient(listener);
  const MIDIClientRef other = makeClient(listener);
  int packets = 0;
  const MIDIReadProc count = [](const MIDIPacketList*, void* refCon, void*) {
    ++*static_cast<int*>(refCon);
  };
  MIDIPortRef in = 0;
  MIDIPortRef othersOut = 0;
  MIDIEndpointRef source = 0;
  MIDIEndpointRef destination = 0;
  mTable.MIDIInputPortCreate(mine, "in", count, &packets, &in);
  mTable.MIDIOutputPortCreate(other, "out", &othersOut);
  mTable.MIDIDestinationCreate(mine, "mine", count, &packets, &destination);
  mTable.MIDISourceCreate(other, "other's", &source);
  mTable.MIDIPortConnectSource(in, source, nullptr);
  mTable.MIDIPortConnectSource(in, mOutside->appear(MIDIEndpointKind::source, "keys"), nullptr);

  // On their way when the client goes.
  const PacketList list(mHost.AudioGetCurrentHostTime() + 1000);
  EXPECT_EQ(mTable.MIDISend(othersOut, destination, list.get()), 0);
  EXPECT_EQ(mTable.MIDIReceived(source, list.get()), 0);

  EXPECT_EQ(mTable.MIDIClientDispose(mine), 0);
  mHost.advance(1'000'000);
  EXPECT_EQ(packets, 0);
  EXPECT_EQ(mTable.MIDIGetNumberOfSources(), 2U);
  EXPECT_EQ(mTable.MIDIGetNumberOfDestinations(), 0U);
  EXPECT_EQ(mTable.MIDIPortDispose(in), kMIDIInvalidPort);
  EXPECT_TRUE(mOutside->connections.empty());
  ASSERT_EQ(mOutside->virtuals.size(), 1U);
  EXPECT_EQ(mOutside->virtuals[0].endpoint, source);
  EXPECT_EQ(mTable.MIDISourceCreate(mine, "too late", &source), kMIDIInvalidClient);
}

TEST_F(MIDIObjectTableTest, ChangesThatComeTogetherAreReportedTogetherAndOnlyIfTheNameIsNew) {
  Listener quiet;
  Listener listener;
  const MIDIClientRef client = makeClient(quiet);
  makeClient(listener);
  const MIDIEndpointRef gone = mOutside->appear(MIDIEndpointKind::source, "gone");
  mTable.MIDIClientDispose(client);  // before its report
  mHost.settle();
  EXPECT_TRUE(quiet.messages.empty());
  listener.messages.clear();
  mOutside->vanish(gone);
  for (int i = 0; i < 400; ++i) {
    mOutside->appear(MIDIEndpointKind::destination, "port " + std::to_string(i));
  }
  mHost.settle();
  EXPECT_EQ(std::exchange(listener.messages, {}),
            (std::vector<int>{kMIDIMsgObjectRemoved, kMIDIMsgObjectAdded, kMIDIMsgSetupChanged}));
  mOutside->appear(MIDIEndpointKind::destination, "port 1");
  mHost.settle();
  EXPECT_TRUE(listener.messages.empty());
  mOutside->appear(MIDIEndpointKind::destination, "port 1", "Desk");
  mHost.settle();
  EXPECT_EQ(listener.messages, std::vector<int>{kMIDIMsgSetupChanged});
}

}  // namespace
}  // namespace velor::midi
