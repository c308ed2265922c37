// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

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

TEST_F(VLDeviceManagerStateTest, AStoredDestinationThatIsMissingIsForgotten) {
  const auto desk = appear("desk");
  destinationOf(desk)->setEnable(true);
  const std::string stored = state();
  restart();
  vanish(desk);
  EXPECT_LT(stored.find("device.destinationdevice"), stored.find("enabled.device"));
  restore(R"({"destinations.manager": [{"$class": "VLTimecodeDestinationDevice"}]})");
  EXPECT_EQ(listed(), Listed{});
  restore(stored);
  EXPECT_EQ(listed(), Listed{});
  EXPECT_EQ(mLog.errors(), 0U);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"-desk"});
}

TEST_F(VLDeviceManagerStateTest, ADestinationThatReturnsDuringARestoreIsSwitchedAsStored) {
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
  const std::string stored = coder.data().value();
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

TEST_F(VLDeviceManagerStateTest,
       ADestinationAmongTheDevicesIsSwitchedByTheManagerAndStaysWhileTheServiceKeepsIt) {
  const auto desk = appear("desk");
  const auto endpoint = std::make_shared<KVMIDIEndpoint>(desk);
  restore({VLTimecodeDestinationDevice::deviceWithDevice(
      VLMIDIEndpointDevice::deviceWithMIDIEndpoint(endpoint), {})});
  ASSERT_EQ(manager().devices().size(), 1U);
  std::dynamic_pointer_cast<VLTimecodeDestinationDevice>(manager().devices()[0])->setEnable(true);
  EXPECT_GE(quarterFramesTo(desk), 24);
  EXPECT_THROW(manager().removeDevicesAtIndexes({0}), KVException);
  EXPECT_EQ(manager().devices().size(), 1U);
}

}  // namespace
}  // namespace velor
