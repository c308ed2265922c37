// SPDX-License-Identifier: MIT
#include "kva/MIDI/KVMIDICore.h"

#include <gtest/gtest.h>

#include <any>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Kv-Appkit/KVRandom.h"
#include "tests/support/MIDITest.h"

namespace velor {
namespace {

using midi::MIDIEndpointKind;
using midi::MIDIEndpointRef;

void ignorePackets(const midi::MIDIPacketList*, void*, void*) {}

// Numbers that a test names, in place of random ones.
class ScriptedRandom {
 public:
  explicit ScriptedRandom(std::vector<std::uint32_t> numbers) {
    sNumbers = std::move(numbers);
    sDrawn = 0;
    mFormer = KVCurrentRandomSource().exchange(
        []() noexcept -> std::uint32_t { return sNumbers[sDrawn++ % sNumbers.size()]; });
  }
  ~ScriptedRandom() { KVCurrentRandomSource() = mFormer; }
  std::size_t drawn() const { return sDrawn; }

 private:
  inline static std::vector<std::uint32_t> sNumbers;
  inline static std::size_t sDrawn = 0;
  KVRandomSource mFormer;
};

class KVMIDICoreTest : public MIDITest {
 protected:
  static KVMIDICore& core() { return KVMIDICore::sharedCore(); }

  std::int32_t idOf(MIDIEndpointRef endpoint) {
    std::int32_t id = 0;
    EXPECT_EQ(mTable.MIDIObjectGetIntegerProperty(endpoint, midi::kMIDIPropertyUniqueID, &id), 0);
    return id;
  }
  static std::vector<MIDIEndpointRef> refs(const KVMIDICore::Endpoints& endpoints) {
    std::vector<MIDIEndpointRef> result;
    for (const auto& endpoint : endpoints) {
      result.push_back(endpoint->endpoint());
    }
    return result;
  }
};

TEST_F(KVMIDICoreTest, ListsFollowThePlatformAndWhoStaysKeepsItsObject) {
  const auto keys = mOutside->appear(MIDIEndpointKind::source, "keys");
  mOutside->appear(MIDIEndpointKind::destination, "synth");
  EXPECT_EQ(refs(core().sources()), std::vector{keys});  // also what came before the core
  const auto keysObject = core().sources()[0];
  const auto synthObject = core().destinations()[0];

  const auto pads = mOutside->appear(MIDIEndpointKind::source, "pads");
  EXPECT_EQ(core().sources().size(), 1U) << "a list changes with the notification alone";
  mHost.settle();
  EXPECT_EQ(refs(core().sources()), (std::vector{keys, pads}));
  EXPECT_EQ(core().sources()[0], keysObject);
  const auto padsObject = core().sources()[1];

  mOutside->vanish(keys);
  ASSERT_EQ(core().sources().size(), 2U) << "its notification is under way";
  EXPECT_EQ(core().sourceWithUniqueId(idOf(pads)), padsObject);
  mHost.settle();
  EXPECT_EQ(core().sources(), KVMIDICore::Endpoints{padsObject});
  EXPECT_EQ(core().sourceWithUniqueId(midi::MIDIObjects::uniqueIDOfPort("keys")), nullptr);

  mOutside->appear(MIDIEndpointKind::source, "keys");
  mHost.settle();
  ASSERT_EQ(refs(core().sources()), (std::vector{keys, pads}));
  EXPECT_NE(core().sources()[0], keysObject) << "gone in between, so it is another object";
  EXPECT_TRUE(core().sources()[0]->isEqual(*keysObject));
  EXPECT_EQ(core().destinations(), KVMIDICore::Endpoints{synthObject});
}

TEST_F(KVMIDICoreTest, EachEventNotifiesObserversOfNewListsThenPostsItsNumber) {
  std::string seen;
  const std::vector<KVObserverToken> tokens = {
      core().addObserver(
          "sources", [&](auto) { seen += "s" + std::to_string(core().sources().size()) + " "; }),
      core().addObserver(
          "destinations",
          [&](auto) { seen += "d" + std::to_string(core().destinations().size()) + " "; }),
      KVNotificationCenter::defaultCenter().addObserver(
          "KVMIDINotification", [&](const KVNotification& notification) {
            EXPECT_TRUE(mHost.mainQueue().isCurrent());
            seen += std::to_string(std::any_cast<std::int32_t>(notification.object)) + " ";
          })};
  mOutside->appear(MIDIEndpointKind::destination, "synth");
  EXPECT_EQ(seen, "");
  mHost.settle();
  EXPECT_EQ(std::exchange(seen, {}), "s0 d1 s0 d1 2 1 ");
  for (const int other : {0, 4, 7}) {
    core().didReceiveMidiNotification({static_cast<midi::MIDINotificationMessageID>(other)});
  }
  mHost.settle();
  EXPECT_EQ(seen, "");
}

TEST_F(KVMIDICoreTest, ADestinationHasItsIdASourceTheIdOneAndWhereThatIsTakenARandomOne) {
  const auto client = core().defaultClient();
  const auto destination = [client](const char* name) {
    return core().createDestination(client, name, ignorePackets, nullptr, 77);
  };
  const ScriptedRandom random({77, 4000, 900, 5, 0, 901});
  EXPECT_EQ(idOf(destination("first")), 77);
  const auto first = core().createSource(client, "first", 4711);
  EXPECT_EQ(idOf(first), 1);
  EXPECT_EQ(random.drawn(), 0U);
  const auto second = destination("second");
  EXPECT_EQ(idOf(second), 4000) << "77 was drawn, too, and is taken";
  EXPECT_EQ(core().endpointWithUniqueId(4000), second);
  EXPECT_EQ(core().endpointWithUniqueId(4001), 0U);
  EXPECT_EQ(idOf(core().createSource(client, "second", 4711)), 900);
  mTable.MIDIEndpointDispose(first);
  EXPECT_EQ(idOf(core().createSource(client, "third", 0)), 1);
  EXPECT_EQ(random.drawn(), 4U);
  EXPECT_EQ(idOf(core().createSource(client, "fourth", 0)), 901) << "0 is no id";
}

TEST_F(KVMIDICoreTest, ThereIsOneClientANameAndItsEndpointsGoWithTheCore) {
  const auto client = core().defaultClient();
  EXPECT_EQ(core().clientWithName("Velor"), client);
  const auto other = core().clientWithName("other");
  EXPECT_NE(other, client);
  EXPECT_EQ(core().clientWithName("other"), other);
  core().createSource(other, "source", 1);
  mHost.settle();

  mOutside->appear(MIDIEndpointKind::source, "keys");  // told to nobody any more
  KVSharedInstances::clear();
  mHost.settle();
  EXPECT_EQ(mTable.MIDIGetNumberOfSources(), 1U);
  EXPECT_EQ(mTable.MIDIClientDispose(client), midi::kMIDIInvalidClient);
  EXPECT_EQ(core().sources().size(), 1U) << "another core begins anew";
}

}  // namespace
}  // namespace velor
