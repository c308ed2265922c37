// SPDX-License-Identifier: MIT
#include "Velor/devices/VLDeviceManager.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/clock/VLClock.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

class VLDeviceManagerTest : public DeviceFixture {
 protected:
  // Devices around virtual destinations, put into the list by way of a state.
  void makeDevices(const std::vector<std::string>& names) {
    std::vector<std::shared_ptr<VLDevice>> devices;
    for (const auto& name : names) {
      devices.push_back(VLMIDIEndpointDevice::deviceWithMIDIEndpoint(
          std::make_shared<KVMIDIEndpoint>(makeVirtual(name, 100 + mMade++))));
    }
    restore(devices);
    mHost.settle();
  }
  static Listed deviceNames() {
    Listed names;
    for (const auto& device : manager().devices()) {
      names.push_back(device->name().value_or("?"));
    }
    return names;
  }

 private:
  int mMade = 0;
};

TEST_F(VLDeviceManagerTest, TheListFollowsTheSystemAndADestinationThatStaysKeepsItsDevice) {
  const auto desk = appear("desk");
  observe();
  const auto deskDevice = destinationOf(desk);
  const auto lamp = appear("lamp");
  EXPECT_EQ(listed(), (Listed{"-desk", "-lamp"}));
  EXPECT_EQ(takeAnnounced(), (Announced{{"destinations", 1}})) << "two events, one change";
  vanish(lamp);
  EXPECT_EQ(listed(), Listed{"-desk"});
  EXPECT_EQ(takeAnnounced(), (Announced{{"destinations", 1}}));
  EXPECT_EQ(destinationOf(desk), deskDevice);
  EXPECT_EQ(destinationOf(lamp), nullptr);

  // One goes and one comes between two looks: two announcements, each of one change.
  mOutside->vanish(desk);
  mOutside->appear(midi::MIDIEndpointKind::destination, "lamp");
  mOutside->appear(midi::MIDIEndpointKind::source, "keys");
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"-lamp"});
  EXPECT_EQ(takeAnnounced(), (Announced{{"destinations", 2}}));
}

TEST_F(VLDeviceManagerTest, ADestinationThatReturnsIsAsItWasWhenItWent) {
  const auto desk = appear("desk");
  const auto lamp = appear("lamp");
  destinationOf(desk)->setEnable(true);
  destinationOf(lamp)->setEnable(true);
  destinationOf(lamp)->setEnable(false);
  for (int i = 0; i < 3; ++i) {
    vanish(desk);
    vanish(lamp);
    EXPECT_EQ(quarterFramesTo(desk), 0) << "nothing is sent in vain";
    EXPECT_EQ(appear("desk"), desk);
    appear("lamp");
    EXPECT_EQ(listed(), (Listed{"+desk", "-lamp"}));
    EXPECT_GE(quarterFramesTo(desk), 24);
    EXPECT_EQ(quarterFramesTo(lamp), 0);
  }
  destinationOf(desk)->setEnable(false);
  vanish(desk);
  appear("desk");
  EXPECT_EQ(listed(), (Listed{"-lamp", "-desk"})) << "remembered once, not for ever";

  // Gone and back before anybody looks.
  destinationOf(desk)->setEnable(true);
  mOutside->vanish(desk);
  mOutside->appear(midi::MIDIEndpointKind::destination, "desk");
  mHost.settle();
  EXPECT_EQ(listed(), (Listed{"-lamp", "+desk"}));
  EXPECT_GE(quarterFramesTo(desk), 24);
}

TEST_F(VLDeviceManagerTest, AnEndpointThatIsMadeAgainIsKnownByItsIdAlone) {
  manager();
  const auto first = makeVirtual("player", 4711);
  mHost.settle();
  destinationOf(first)->setEnable(true);
  KVMIDIEndpoint(first).dispose();
  const auto second = makeVirtual("player, renamed", 4711);
  mHost.settle();
  ASSERT_NE(first, second);
  EXPECT_EQ(listed(), Listed{"+player, renamed"});
}

TEST_F(VLDeviceManagerTest, TheSwitchOfADeviceThatHasGoneDecidesItsReturnAndNothingElse) {
  const auto desk = appear("desk");
  const auto kept = destinationOf(desk);
  kept->setEnable(true);
  vanish(desk);
  kept->setEnable(false);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"-desk"});
  EXPECT_EQ(quarterFramesTo(desk), 0) << "the clock had been told that it went";
  vanish(desk);
  kept->setEnable(true);
  EXPECT_EQ(quarterFramesTo(desk), 0);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"+desk"});

  // The one that is there has its own.
  kept->setEnable(false);
  EXPECT_EQ(listed(), Listed{"+desk"});
  EXPECT_GE(quarterFramesTo(desk), 24);
  destinationOf(desk)->setEnable(false);
  kept->setEnable(true);
  EXPECT_EQ(quarterFramesTo(desk), 0);
  vanish(desk);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"-desk"});
}

TEST_F(VLDeviceManagerTest, AnEndpointThatIsGoneBeforeItIsReadDoesNoHarm) {
  manager();
  const auto ref = makeVirtual("brief", 9);
  core().resyncDeviceList();
  mTable.MIDIEndpointDispose(ref);
  manager().destinationsChanged();  // the core's list still has it
  EXPECT_EQ(manager().destinations().size(), 1U);
  mHost.settle();
  EXPECT_EQ(listed(), Listed{});
}

TEST_F(VLDeviceManagerTest, AMediaWindowsInputIsSwitchedOnOnceItIsThere) {
  manager();
  const auto first = makeVirtual("player", VLDeviceManager::kMediaPlaybackUniqueID);
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"+player"});
  destinationOf(first)->setEnable(false);
  KVMIDIEndpoint(first).dispose();
  mHost.settle();
  const auto second = makeVirtual("player 2", VLDeviceManager::kMediaPlaybackUniqueID);
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"+player 2"}) << "whatever became of the one before";

  // It goes again before its turn comes: the clock must not be given it.
  KVMIDIEndpoint(second).dispose();
  mHost.settle();
  const auto third = makeVirtual("player 3", VLDeviceManager::kMediaPlaybackUniqueID);
  core().resyncDeviceList();
  manager().destinationsChanged();
  KVMIDIEndpoint(third).dispose();
  core().resyncDeviceList();
  manager().destinationsChanged();
  mHost.settle();
  EXPECT_EQ(mLog.count("Timecode Destination Device: player 3 [1836084345] did enable transmit"),
            0);
  EXPECT_EQ(listed(), Listed{});
}

TEST_F(VLDeviceManagerTest, RemovedDevicesGoFromTheSystemTheListsAndTheClock) {
  const auto desk = appear("desk");
  makeDevices({"one", "two", "three"});
  EXPECT_EQ(deviceNames(), (Listed{"one", "two", "three"}));
  EXPECT_EQ(listed(), (Listed{"-desk", "-one", "-two", "-three"}));
  const auto two = manager().devices()[1]->midiEndpoint();
  destinationOf(two->endpoint())->setEnable(true);
  const std::weak_ptr<KVMIDIEndpoint> sentTo = destinationOf(two->endpoint())->midiEndpoint();
  observe();
  manager().removeDevicesAtIndexes({1});
  EXPECT_EQ(deviceNames(), (Listed{"one", "three"}));
  EXPECT_EQ(listed(), (Listed{"-desk", "-one", "-three"})) << "at once";
  EXPECT_EQ(takeAnnounced(), (Announced{{"destinations", 1}, {"devices", 1}}));
  EXPECT_EQ(two->endpoint(), 0U);
  EXPECT_EQ(mTable.MIDIGetNumberOfDestinations(), 3U);
  mHost.settle();
  EXPECT_EQ(takeAnnounced(), Announced{}) << "the notification finds nothing to do";
  EXPECT_TRUE(sentTo.expired()) << "the clock holds it no more";

  EXPECT_THROW(manager().removeDevicesAtIndexes({0, 2}), KVException);
  EXPECT_EQ(deviceNames(), (Listed{"one", "three"})) << "refused as a whole";
  manager().removeDevicesAtIndexes({0, 1});
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"-desk"});
  EXPECT_EQ(mTable.MIDIGetNumberOfDestinations(), 1U);
  destinationOf(desk)->setEnable(true);
  EXPECT_GE(quarterFramesTo(desk), 24);

  // One made later under the same id was not left switched on.
  makeVirtual("two again", 101);
  mHost.settle();
  EXPECT_EQ(listed(), (Listed{"+desk", "-two again"}));
}

TEST_F(VLDeviceManagerTest, OthersWaitWhileAChangeIsUnderWay) {
  appear("desk");
  manager();
  bool isChanging = false;
  int met = 0;
  const auto token = manager().addObserver("destinations", [&](const auto&) {
    isChanging = true;
    clock().time();  // waits for the clock's queue
    mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + kFrame25);
    isChanging = false;
  });
  bool ending = false;
  const auto thread = mHost.startThread("reader", [&] {
    while (!ending) {
      EXPECT_EQ(manager().destinations().size(), 2U);
      met += isChanging ? 1 : 0;
      mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + kFrame25 / 8);
    }
  });
  mOutside->appear(midi::MIDIEndpointKind::destination, "lamp");
  // The reader is held off from before the list has two until the change is over.
  mHost.settle();
  ending = true;
  mHost.advance(kFrame25);
  thread->join();
  EXPECT_EQ(met, 0);
}

}  // namespace
}  // namespace velor
