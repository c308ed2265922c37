// SPDX-License-Identifier: MIT
// What code may rely on, whichever MIDI service is in force.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"
#include "sim/SimulatedHost.h"
#include "tests/support/Kind.h"
#include "tests/support/PacketList.h"
#include "tests/support/Until.h"

namespace velor::midi {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

// A service with the host that carries its time.
struct Setting {
  virtual ~Setting() = default;
  virtual MIDIService& midi() = 0;
  // How often a test repeats its steps: more often than the service has places, or, with a
  // server, as often as there is time for.
  virtual int rounds() = 0;
};

struct BuiltinSetting final : Setting {
  MIDIService& midi() override { return mTable; }
  int rounds() override { return 300; }
  host::SimulatedHost mHost;
  MIDIObjectTable mTable{nullptr};
};

struct JackSetting final : Setting {
  JackSetting() {
    mServer.start();
    mTable = std::make_unique<MIDIObjectTable>(std::make_unique<JackMIDI>());
  }
  MIDIService& midi() override { return *mTable; }
  int rounds() override { return 20; }
  test::JackServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<MIDIObjectTable> mTable;
};

using ServiceKind = test::Kind<Setting>;

// What a read function took in, and when.
struct Taken {
  MIDITimeStamp stamp;
  MIDITimeStamp at;
  std::vector<std::uint8_t> bytes;
  void* source;
};

class MIDIServiceContract : public testing::TestWithParam<ServiceKind> {
 protected:
  MIDIServiceContract() {
    midi().MIDIClientCreate(
        "Velor",
        [](const MIDINotification* notification, void* self) {
          static_cast<MIDIServiceContract*>(self)->mNotified.push_back(notification->messageID);
        },
        this, &mClient);
    midi().MIDIOutputPortCreate(mClient, "out", &mOut);
  }

  static void read(const MIDIPacketList* packets, void* self, void* source) {
    auto& test = *static_cast<MIDIServiceContract*>(self);
    forEachPacket(*packets, [&test, source](const MIDIPacket& packet) {
      test.mTaken[test.mCount] = {
          packet.timeStamp, now(), {packet.data, packet.data + packet.length}, source};
      ++test.mCount;
    });
  }

  MIDIService& midi() { return mSetting->midi(); }
  static std::uint64_t now() { return host::current().AudioGetCurrentHostTime(); }
  static bool until(const std::function<bool()>& condition) { return test::until(5, condition); }
  MIDIEndpointRef makeDestination(const std::string& name) {
    MIDIEndpointRef endpoint = 0;
    EXPECT_EQ(midi().MIDIDestinationCreate(mClient, name, &read, this, &endpoint), 0);
    return endpoint;
  }
  bool isListed(MIDIEndpointRef destination) {
    for (std::size_t i = 0; i < midi().MIDIGetNumberOfDestinations(); ++i) {
      if (midi().MIDIGetDestination(i) == destination) {
        return true;
      }
    }
    return false;
  }
  // Whether the client is told of the change, and then that there was one.
  bool isTold(MIDINotificationMessageID change) {
    return until([this] { return mNotified.size() >= 2; }) &&
           std::exchange(mNotified, {}) ==
               std::vector<MIDINotificationMessageID>{change, kMIDIMsgSetupChanged};
  }

  const std::unique_ptr<Setting> mSetting = GetParam().make();
  std::vector<Taken> mTaken = std::vector<Taken>(1000);
  std::atomic<std::size_t> mCount{0};
  std::vector<MIDINotificationMessageID> mNotified;
  MIDIClientRef mClient = 0;
  MIDIPortRef mOut = 0;
};

TEST_P(MIDIServiceContract, PacketsArriveAtTheirTimesInTheirOrderWithExactStamps) {
  const MIDIEndpointRef destination = makeDestination("in");
  const std::uint64_t start = now();
  constexpr std::uint64_t kDelays[] = {30 * kMs, 10 * kMs, 20 * kMs, 10 * kMs};
  for (std::uint8_t i = 0; i < 4; ++i) {
    midi().MIDISend(mOut, destination, PacketList(start + kDelays[i], i).get());
  }
  midi().MIDISend(mOut, destination, PacketList(0, 8).get());
  midi().MIDISend(mOut, destination, PacketList(start - kMs, 9).get());
  ASSERT_TRUE(until([this] { return mCount >= 6; }));
  // Those that are late go at once; among equals the first sent is the first to come.
  EXPECT_EQ(mTaken[0].bytes[1] + mTaken[1].bytes[1], 8 + 9);
  const std::uint8_t order[] = {1, 3, 2, 0};
  for (std::size_t i = 0; i < 4; ++i) {
    const Taken& taken = mTaken[i + 2];
    EXPECT_EQ(taken.bytes[1], order[i]);
    EXPECT_EQ(taken.stamp, start + kDelays[order[i]]);
    EXPECT_GE(taken.at, taken.stamp);
  }
}

TEST_P(MIDIServiceContract, AVirtualSourceReachesThePortsThatAreConnectedToIt) {
  MIDIEndpointRef source = 0;
  ASSERT_EQ(midi().MIDISourceCreate(mClient, "source", &source), 0);
  MIDIPortRef in = 0;
  ASSERT_EQ(midi().MIDIInputPortCreate(mClient, "in", &read, this, &in), 0);
  int mark = 0;
  midi().MIDIReceived(source, PacketList(0, 1).get());  // nobody listens
  EXPECT_EQ(midi().MIDIPortConnectSource(in, source, &mark), 0);
  midi().MIDIReceived(source, PacketList(0, 2).get());
  ASSERT_TRUE(until([this] { return mCount >= 1; }));
  EXPECT_EQ(mTaken[0].bytes[1], 2);
  EXPECT_EQ(mTaken[0].source, &mark);
  EXPECT_EQ(midi().MIDIPortDisconnectSource(in, source), 0);
  EXPECT_EQ(midi().MIDIPortDisconnectSource(in, source), kMIDINoConnection);
  midi().MIDIReceived(source, PacketList(0, 3).get());
  EXPECT_EQ(midi().MIDIPortDispose(in), 0);
  EXPECT_EQ(mCount, 1U);
}

TEST_P(MIDIServiceContract, WhatIsDisposedOfIsQuietAndItsPlaceCanBeTakenAgain) {
  for (int round = 0; round < mSetting->rounds(); ++round) {
    const MIDIEndpointRef destination = makeDestination("short-lived");
    midi().MIDISend(mOut, destination, PacketList(now() + 1000 * kMs, 1).get());
    midi().MIDISend(mOut, destination, PacketList(0, 2).get());
    ASSERT_EQ(midi().MIDIEndpointDispose(destination), 0);
    const std::size_t count = mCount.exchange(0);
    ASSERT_LE(count, 1U);
    EXPECT_EQ(midi().MIDISend(mOut, destination, PacketList(0, 3).get()), kMIDIUnknownEndpoint);
    EXPECT_EQ(midi().MIDIEndpointDispose(destination), kMIDIUnknownEndpoint);
  }
  EXPECT_EQ(mCount, 0U);
}

TEST_P(MIDIServiceContract, EndpointsHaveUniqueIdsAndTheirNames) {
  const MIDIEndpointRef first = makeDestination("same name");
  const MIDIEndpointRef second = makeDestination("same name");
  std::int32_t firstId = 0;
  std::int32_t secondId = 0;
  EXPECT_EQ(midi().MIDIObjectGetIntegerProperty(first, kMIDIPropertyUniqueID, &firstId), 0);
  EXPECT_EQ(midi().MIDIObjectGetIntegerProperty(second, kMIDIPropertyUniqueID, &secondId), 0);
  EXPECT_NE(firstId, 0);
  EXPECT_NE(firstId, secondId);
  EXPECT_EQ(midi().MIDIObjectSetIntegerProperty(second, kMIDIPropertyUniqueID, firstId),
            kMIDIIDNotUnique);
  EXPECT_EQ(midi().MIDIObjectSetIntegerProperty(second, kMIDIPropertyUniqueID, 4711), 0);
  MIDIObjectRef found = 0;
  EXPECT_EQ(midi().MIDIObjectFindByUniqueID(4711, &found), 0);
  EXPECT_EQ(found, second);

  std::string text;
  EXPECT_EQ(midi().MIDIObjectGetStringProperty(first, kMIDIPropertyDisplayName, &text), 0);
  EXPECT_EQ(text, "same name");
}

TEST_P(MIDIServiceContract, TheListsFollowAndClientsAreNotifiedOnTheMainQueue) {
  const MIDIEndpointRef destination = makeDestination("listed");
  EXPECT_TRUE(isListed(destination));
  EXPECT_TRUE(isTold(kMIDIMsgObjectAdded));
  midi().MIDIEndpointDispose(destination);
  EXPECT_FALSE(isListed(destination));
  EXPECT_TRUE(isTold(kMIDIMsgObjectRemoved));
}

INSTANTIATE_TEST_SUITE_P(Services, MIDIServiceContract,
                         testing::Values(ServiceKind::of<BuiltinSetting>("builtin"),
                                         ServiceKind::of<JackSetting>("jack")),
                         test::kNameOfKind);

}  // namespace
}  // namespace velor::midi
