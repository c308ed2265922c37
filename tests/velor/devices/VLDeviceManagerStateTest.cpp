// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "tests/support/MockMIDIService.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

using testing::_;
using testing::DoAll;
using testing::NiceMock;
using testing::Return;
using testing::SetArgPointee;

using VLDeviceManagerStateTest = DeviceFixture;

TEST_F(VLDeviceManagerStateTest, AStoredDestinationThatIsThereIsSwitchedOnAgain) {
  const auto desk = appear("desk");
  const auto lamp = appear("lamp");
  destinationOf(lamp)->setEnable(true);
  const std::string stored = state();
  restart();
  EXPECT_EQ(listed(), (Listed{"-desk", "-lamp"}));
  const auto lampDevice = destinationOf(lamp);
  observe();
  restore(stored);
  EXPECT_EQ(listed(), (Listed{"-desk", "+lamp"}));
  EXPECT_EQ(destinationOf(lamp), lampDevice) << "the one that is there, not the stored one";
  EXPECT_EQ(takeAnnounced(), (Announced{{"destinations", 1}, {"devices", 1}}));
  EXPECT_GE(quarterFramesTo(lamp), 24);
  EXPECT_EQ(quarterFramesTo(desk), 0);

  destinationOf(desk)->setEnable(true);
  restore(stored);
  EXPECT_EQ(listed(), (Listed{"+desk", "+lamp"})) << "one stored as off changes nothing";
  EXPECT_EQ(mLog.errors(), 0U);
}

TEST_F(VLDeviceManagerStateTest, AStoredDestinationThatIsAwayIsForgotten) {
  const auto desk = appear("desk");
  destinationOf(desk)->setEnable(true);
  const std::string stored = state();
  restart();
  vanish(desk);
  restore(stored);
  EXPECT_EQ(listed(), Listed{});
  EXPECT_EQ(mLog.errors(), 0U);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"-desk"});
}

TEST_F(VLDeviceManagerStateTest, OneThatHasReturnedAndIsNotListedYetIsTakenAsStored) {
  const auto desk = appear("desk");
  destinationOf(desk)->setEnable(true);
  const std::string on = state();
  destinationOf(desk)->setEnable(false);
  const std::string off = state();
  destinationOf(desk)->setEnable(true);
  vanish(desk);  // and is remembered
  mOutside->appear(midi::MIDIEndpointKind::destination, "desk");
  restore(off);
  EXPECT_EQ(listed(), Listed{"-desk"});
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"-desk"}) << "no second one, and not switched on by the memory";

  vanish(desk);
  mOutside->appear(midi::MIDIEndpointKind::destination, "desk");
  restore(on);
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"+desk"});
  EXPECT_GE(quarterFramesTo(desk), 24);
}

TEST_F(VLDeviceManagerStateTest, AMediaWindowsInputThatAppearsInARestoreIsLeftAsStored) {
  manager();
  makeVirtual("player", VLDeviceManager::kMediaPlaybackUniqueID);
  core().resyncDeviceList();
  restore("{}");
  EXPECT_EQ(listed(), Listed{"-player"});
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"-player"});
}

TEST_F(VLDeviceManagerStateTest, DevicesAreReplacedByTheStoredOnesThatStillHaveAnEndpoint) {
  const auto one = makeVirtual("one", 1001);
  const auto two = makeVirtual("two", 1002);
  store::KeyedArchiver coder;
  coder.encodeArray(
      std::vector<std::shared_ptr<VLDevice>>{
          std::make_shared<VLReaderDevice>(std::make_shared<KVMIDIEndpoint>(one)), nullptr,
          std::make_shared<VLMIDIEndpointDevice>(std::make_shared<KVMIDIEndpoint>(two))},
      "devices.manager");
  const std::string stored = coder.data();
  observe();
  restore(stored);
  ASSERT_EQ(manager().devices().size(), 2U);
  EXPECT_EQ(manager().devices()[0]->name(), "one");
  EXPECT_NE(std::dynamic_pointer_cast<VLReaderDevice>(manager().devices()[0]), nullptr);
  const auto kept = manager().devices();
  restore("{}");
  EXPECT_EQ(manager().devices(), kept) << "a state without devices leaves them";
  mHost.settle();
  KVMIDIEndpoint(two).dispose();
  mHost.settle();
  restore(stored);
  ASSERT_EQ(manager().devices().size(), 1U);
  EXPECT_EQ(manager().devices()[0]->name(), "one");
  EXPECT_EQ(mLog.errors(), 0U);
}

TEST_F(VLDeviceManagerStateTest, ADestinationAmongTheDevicesIsSwitchedByTheManager) {
  const auto desk = appear("desk");
  store::KeyedArchiver coder;
  coder.encodeArray(
      std::vector{VLTimecodeDestinationDevice::deviceWithDevice(
          VLMIDIEndpointDevice::deviceWithMIDIEndpoint(std::make_shared<KVMIDIEndpoint>(desk)),
          {})},
      "devices.manager");
  restore(coder.data());
  ASSERT_EQ(manager().devices().size(), 1U);
  std::dynamic_pointer_cast<VLTimecodeDestinationDevice>(manager().devices()[0])->setEnable(true);
  EXPECT_GE(quarterFramesTo(desk), 24);
}

TEST_F(VLDeviceManagerStateTest, AWrongValueIsLoggedWithItsPathAndLeavesWhatWasDone) {
  const auto desk = appear("desk");
  makeVirtual("one", 1001);
  const std::string document = R"({
    "devices.manager": [{"$class": "VLReaderDevice", "endpoint":
        {"$class": "KVMIDIEndpoint", "MIDIEndpoint.MIDIUniqueID": 1001}}],
    "destinations.manager": [null, {"$class": "VLTimecodeDestinationDevice",
        "device.destinationdevice": {"$class": "VLMIDIEndpointDevice", "endpoint": "desk"}}]
  })";
  observe();
  restore(document);
  EXPECT_TRUE(
      mLog.has("error: exception decoding state of device manager: "
               "destinations.manager[1].device.destinationdevice.endpoint: "
               "expected an object of class KVMIDIEndpoint, found a string"));
  EXPECT_EQ(manager().devices().size(), 1U);
  EXPECT_EQ(takeAnnounced()["destinations"], 1) << "what was begun is ended";
  destinationOf(desk)->setEnable(true);
  EXPECT_GE(quarterFramesTo(desk), 24) << "the manager goes on";
}

TEST_F(VLDeviceManagerStateTest, OtherFailuresPassOnAndLeaveTheManagerUsable) {
  manager();
  const store::KeyedClass classes[] = {
      {"VLReaderDevice", [](store::KeyedUnarchiver&) -> std::shared_ptr<store::KeyedCoding> {
         throw std::length_error("no room");
       }}};
  EXPECT_THROW(restore(R"({"devices.manager": [{"$class": "VLReaderDevice"}]})", classes),
               std::length_error);
  // Neither the lock nor the state of restoring is left behind.
  makeVirtual("player", VLDeviceManager::kMediaPlaybackUniqueID);
  const auto thread = mHost.startThread("other", [] { manager().destinations(); });
  mHost.settle();
  thread->join();
  EXPECT_EQ(listed(), Listed{"+player"});
}

// Two destinations, 100 and 101 by reference and id; the second has no display name
// and takes none.
class VLDeviceManagerFailureTest : public testing::Test {
 protected:
  VLDeviceManagerFailureTest() {
    midi::setService(&mService);
    ON_CALL(mService, MIDIClientCreate).WillByDefault(DoAll(SetArgPointee<3>(5), Return(0)));
    ON_CALL(mService, MIDIGetNumberOfDestinations).WillByDefault(Return(2));
    ON_CALL(mService, MIDIGetDestination).WillByDefault([](std::size_t index) {
      return static_cast<midi::MIDIEndpointRef>(100 + index);
    });
    ON_CALL(mService, MIDIObjectFindByUniqueID)
        .WillByDefault([](midi::MIDIUniqueID id, midi::MIDIObjectRef* object) {
          *object = static_cast<midi::MIDIObjectRef>(id);
          return 0;
        });
    ON_CALL(mService, MIDIObjectGetIntegerProperty(_, midi::kMIDIPropertyUniqueID, _))
        .WillByDefault([](midi::MIDIObjectRef object, midi::MIDIProperty, std::int32_t* value) {
          *value = static_cast<std::int32_t>(object);
          return 0;
        });
    ON_CALL(mService, MIDIObjectGetStringProperty(100, _, _))
        .WillByDefault(DoAll(SetArgPointee<2>("desk"), Return(0)));
    ON_CALL(mService, MIDIObjectGetStringProperty(101, _, _))
        .WillByDefault(Return(midi::kMIDIUnknownProperty));
    ON_CALL(mService, MIDIObjectSetStringProperty(101, _, _)).WillByDefault(Return(-7));
  }
  ~VLDeviceManagerFailureTest() override {
    KVSharedInstances::clear();
    midi::setService(nullptr);
  }

  host::SimulatedHost mHost;
  NiceMock<midi::MockMIDIService> mService;
  LogRecord mLog;
};

TEST_F(VLDeviceManagerFailureTest, AFailureOfTheServiceIsLoggedAndLeavesWhatWasDone) {
  auto& manager = VLDeviceManager::sharedManager();
  ASSERT_EQ(manager.destinations().size(), 2U);
  EXPECT_TRUE(mLog.has("add destination device (null)"));
  const auto result = store::KeyedUnarchiver::read(R"({
    "devices.manager": [{"$class": "VLReaderDevice", "endpoint":
        {"$class": "KVMIDIEndpoint", "MIDIEndpoint.MIDIUniqueID": 100}}],
    "destinations.manager": [{"$class": "VLTimecodeDestinationDevice",
        "device.destinationdevice": {"$class": "VLMIDIEndpointDevice", "endpoint":
            {"$class": "KVMIDIEndpoint", "MIDIEndpoint.MIDIUniqueID": 101,
             "MIDIEndpoint.DisplayName": "lamp"}}, "enabled.device": true}]
  })",
                                                   kDeviceClasses);
  ASSERT_TRUE(result) << result.error;
  manager.decodeState(*result.coder);
  EXPECT_TRUE(
      mLog.has("error: exception decoding state of device manager: "
               "Error: -[KVMIDIEndpoint setDisplayName:] (-7)"));
  EXPECT_EQ(manager.devices().size(), 1U);
  EXPECT_FALSE(manager.destinations()[1]->enable());
  manager.destinations()[0]->setEnable(true);
  EXPECT_TRUE(manager.destinations()[0]->enable());

  // And at the removal: a device that the service does not let go stays listed.
  EXPECT_CALL(mService, MIDIEndpointDispose(100)).WillRepeatedly(Return(-8));
  EXPECT_THROW(manager.removeDevicesAtIndexes({0}), KVException);
  EXPECT_EQ(manager.devices().size(), 1U);
}

}  // namespace
}  // namespace velor
