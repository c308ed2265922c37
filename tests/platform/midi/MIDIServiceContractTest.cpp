// SPDX-License-Identifier: MIT
// What code may rely on, whichever MIDI service is in force.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/SimulatedHost.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"
#include "tests/support/Servers.h"

namespace velor::midi {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

// A service with the host that carries its time.
struct Setting {
  virtual ~Setting() = default;
  virtual MIDIService& midi() = 0;
  virtual host::Host& host() = 0;
  // Lets the main loop run until the condition holds; false after 5 s.
  virtual bool until(const std::function<bool()>& condition) = 0;
};

struct BuiltinSetting final : Setting {
  MIDIService& midi() override { return mTable; }
  host::Host& host() override { return mHost; }
  bool until(const std::function<bool()>& condition) override {
    for (int i = 0; i < 5000 && !condition(); ++i) {
      mHost.advance(kMs);
    }
    return condition();
  }
  host::SimulatedHost mHost;
  MIDIObjectTable mTable{nullptr};
};

struct JackSetting final : Setting {
  JackSetting() {
    mServer.enter();
    mServer.start();
    mTable = std::make_unique<MIDIObjectTable>(std::make_unique<JackMIDI>());
  }
  MIDIService& midi() override { return *mTable; }
  host::Host& host() override { return mHost; }
  bool until(const std::function<bool()>& condition) override {
    return test::waitFor(5, [this, &condition] {
      mHost.mainQueue().drainPending();
      return condition();
    });
  }
  test::JackServer mServer;
  host::SystemHost mHost;
  std::unique_ptr<MIDIObjectTable> mTable;
};

struct ServiceKind {
  const char* name;
  std::unique_ptr<Setting> (*make)();
  int rounds;  // of what is to be repeated: more than there are places, or what time allows
};

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
      test.mTaken[test.mCount] = {packet.timeStamp,
                                  test.mSetting->host().AudioGetCurrentHostTime(),
                                  {packet.data, packet.data + packet.length},
                                  source};
      ++test.mCount;
    });
  }

  MIDIService& midi() { return mSetting->midi(); }
  std::uint64_t now() { return mSetting->host().AudioGetCurrentHostTime(); }
  MIDIEndpointRef makeDestination(const std::string& name) {
    MIDIEndpointRef endpoint = 0;
    EXPECT_EQ(midi().MIDIDestinationCreate(mClient, name, &read, this, &endpoint), 0);
    return endpoint;
  }
  static const MIDIPacketList& list(MIDIPacketList& room, MIDITimeStamp time, std::uint8_t tag) {
    const std::uint8_t bytes[] = {0xF1, tag};
    MIDIPacketListAdd(&room, sizeof room, MIDIPacketListInit(&room), time, 2, bytes);
    return room;
  }
  bool contains(bool sources, MIDIEndpointRef endpoint) {
    const std::size_t count =
        sources ? midi().MIDIGetNumberOfSources() : midi().MIDIGetNumberOfDestinations();
    for (std::size_t i = 0; i < count; ++i) {
      if ((sources ? midi().MIDIGetSource(i) : midi().MIDIGetDestination(i)) == endpoint) {
        return true;
      }
    }
    return false;
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
  MIDIPacketList room;
  for (const std::uint64_t delay : {30U, 10U, 20U, 10U}) {
    midi().MIDISend(mOut, destination,
                    &list(room, start + delay * kMs, static_cast<std::uint8_t>(delay)));
  }
  midi().MIDISend(mOut, destination, &list(room, 0, 1));
  midi().MIDISend(mOut, destination, &list(room, start - kMs, 2));
  ASSERT_TRUE(mSetting->until([this] { return mCount >= 6; }));
  // Those that are late go at once; among equals the first sent is the first to come.
  const std::uint8_t tags[] = {2, 1, 10, 10, 20, 30};
  std::size_t late = 0;
  for (std::size_t i = 0; i < 6; ++i) {
    const Taken& taken = mTaken[i];
    if (taken.bytes[1] <= 2) {
      ++late;
      EXPECT_LT(i, 2U);
      continue;
    }
    EXPECT_EQ(taken.bytes[1], tags[i]);
    EXPECT_EQ(taken.stamp, start + taken.bytes[1] * kMs);
    EXPECT_GE(taken.at, taken.stamp);
  }
  EXPECT_EQ(late, 2U);
}

TEST_P(MIDIServiceContract, AVirtualSourceReachesThePortsThatAreConnectedToIt) {
  MIDIEndpointRef source = 0;
  ASSERT_EQ(midi().MIDISourceCreate(mClient, "source", &source), 0);
  MIDIPortRef in = 0;
  ASSERT_EQ(midi().MIDIInputPortCreate(mClient, "in", &read, this, &in), 0);
  int mark = 0;
  MIDIPacketList room;
  midi().MIDIReceived(source, &list(room, 0, 1));  // nobody listens
  EXPECT_EQ(midi().MIDIPortConnectSource(in, source, &mark), 0);
  midi().MIDIReceived(source, &list(room, 0, 2));
  ASSERT_TRUE(mSetting->until([this] { return mCount >= 1; }));
  EXPECT_EQ(mTaken[0].bytes[1], 2);
  EXPECT_EQ(mTaken[0].source, &mark);
  EXPECT_EQ(midi().MIDIPortDisconnectSource(in, source), 0);
  EXPECT_EQ(midi().MIDIPortDisconnectSource(in, source), kMIDINoConnection);
  midi().MIDIReceived(source, &list(room, 0, 3));
  EXPECT_EQ(midi().MIDIPortDispose(in), 0);
  EXPECT_EQ(mCount, 1U);
}

TEST_P(MIDIServiceContract, WhatIsDisposedOfIsQuietAndItsPlaceCanBeTakenAgain) {
  MIDIPacketList room;
  for (int round = 0; round < GetParam().rounds; ++round) {
    const MIDIEndpointRef destination = makeDestination("short-lived");
    midi().MIDISend(mOut, destination, &list(room, now() + 1000 * kMs, 1));
    midi().MIDISend(mOut, destination, &list(room, 0, 2));
    ASSERT_EQ(midi().MIDIEndpointDispose(destination), 0);
    const std::size_t count = mCount.exchange(0);
    ASSERT_LE(count, 1U);
    EXPECT_EQ(midi().MIDISend(mOut, destination, &list(room, 0, 3)), kMIDIUnknownEndpoint);
    EXPECT_EQ(midi().MIDIEndpointDispose(destination), kMIDIUnknownEndpoint);
  }
  EXPECT_EQ(mCount, 0U);
}

TEST_P(MIDIServiceContract, EndpointsHaveUniqueIdsAndProperties) {
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
  EXPECT_EQ(midi().MIDIObjectFindByUniqueID(4712, &found), kMIDIObjectNotFound);

  std::string text;
  EXPECT_EQ(midi().MIDIObjectGetStringProperty(first, kMIDIPropertyDisplayName, &text), 0);
  EXPECT_EQ(text, "same name");
  EXPECT_EQ(midi().MIDIObjectGetStringProperty(first, kMIDIPropertyModel, &text),
            kMIDIUnknownProperty);
  EXPECT_EQ(midi().MIDIObjectGetIntegerProperty(first, kMIDIPropertyDisplayName, &firstId),
            kMIDIWrongPropertyType);
  EXPECT_EQ(midi().MIDIObjectGetStringProperty(9999, kMIDIPropertyName, &text),
            kMIDIObjectNotFound);
  // An id is a number, also on what has none yet.
  EXPECT_EQ(midi().MIDIObjectSetStringProperty(mOut, kMIDIPropertyUniqueID, "7"),
            kMIDIWrongPropertyType);
}

TEST_P(MIDIServiceContract, TheListsFollowAndClientsAreToldOnTheMainQueue) {
  mNotified.clear();
  const MIDIEndpointRef destination = makeDestination("listed");
  EXPECT_TRUE(contains(false, destination));
  EXPECT_FALSE(contains(true, destination));
  ASSERT_TRUE(mSetting->until([this] { return mNotified.size() >= 2; }));
  EXPECT_NE(std::find(mNotified.begin(), mNotified.end(), kMIDIMsgObjectAdded), mNotified.end());
  EXPECT_NE(std::find(mNotified.begin(), mNotified.end(), kMIDIMsgSetupChanged), mNotified.end());
  mNotified.clear();
  midi().MIDIEndpointDispose(destination);
  EXPECT_FALSE(contains(false, destination));
  ASSERT_TRUE(mSetting->until([this] { return mNotified.size() >= 2; }));
  EXPECT_NE(std::find(mNotified.begin(), mNotified.end(), kMIDIMsgObjectRemoved), mNotified.end());
}

TEST_P(MIDIServiceContract, WrongReferencesAreRefusedWithTheirCodes) {
  MIDIPacketList room;
  MIDIPortRef port = 0;
  MIDIEndpointRef source = 0;
  ASSERT_EQ(midi().MIDISourceCreate(mClient, "source", &source), 0);
  EXPECT_EQ(midi().MIDIOutputPortCreate(9999, "x", &port), kMIDIInvalidClient);
  EXPECT_EQ(midi().MIDISend(9999, source, &list(room, 0, 1)), kMIDIInvalidPort);
  EXPECT_EQ(midi().MIDISend(mOut, source, &list(room, 0, 1)), kMIDIUnknownEndpoint);
  EXPECT_EQ(midi().MIDIPortConnectSource(mOut, source, nullptr), kMIDIInvalidPort);
  EXPECT_EQ(midi().MIDIPortDispose(source), kMIDIInvalidPort);
  EXPECT_EQ(midi().MIDIEndpointDispose(mOut), kMIDIUnknownEndpoint);
}

INSTANTIATE_TEST_SUITE_P(
    Services, MIDIServiceContract,
    testing::Values(
        ServiceKind{"builtin", [] { return std::unique_ptr<Setting>(new BuiltinSetting); }, 300},
        ServiceKind{"jack", [] { return std::unique_ptr<Setting>(new JackSetting); }, 60}),
    [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace velor::midi
