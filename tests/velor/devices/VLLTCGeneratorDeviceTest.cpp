// SPDX-License-Identifier: MIT
#include "Velor/devices/VLLTCGeneratorDevice.h"

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/velor/devices/LoopbackFixture.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

constexpr store::KeyedClass kClasses[] = {
    store::KeyedClass::of<KVMIDIEndpoint>(), store::KeyedClass::of<VLMIDIEndpointDevice>(),
    store::KeyedClass::of<VLTimecodeDestinationDevice>(),
    store::KeyedClass::of<VLLTCGeneratorDevice>(), store::KeyedClass::of<KVLTCGenerator>()};

using VLLTCGeneratorDeviceTest = LoopbackFixture;

TEST_F(VLLTCGeneratorDeviceTest, ItPlaysWhileTheClockRunsAndRemovedLeavesTheSystemWhoeverHoldsIt) {
  auto device = created();
  EXPECT_EQ(device->name(), "LTC Generator 1");
  EXPECT_EQ(manager().createGenerator()->name(), "LTC Generator 2");
  mHost.settle();
  inputOf(*device)->setEnable(true);
  int told = 0;
  const auto token = device->addObserver("deviceStatus", [&told](const auto&) { ++told; });
  clock().start();
  mHost.advance(kSecond);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusRunning);
  clock().stop();
  mHost.advance(kSecond);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusIdle);
  EXPECT_EQ(told, 2);

  const auto ref = device->midiEndpoint()->endpoint();
  clock().start();
  mHost.advance(kSecond / 2);
  manager().removeDevicesAtIndexes({0, 1});
  EXPECT_TRUE(manager().destinations().empty());
  EXPECT_EQ(quarterFramesTo(ref), 0);
  mHost.advance(kSecond);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusIdle);
}

TEST_F(VLLTCGeneratorDeviceTest, AnArchiveWithoutAGeneratorGivesOneOnTheDefaultOutput) {
  auto read = store::KeyedUnarchiver::read(
      R"({"device": {"$class": "VLLTCGeneratorDevice", "name": "old", "MIDIUniqueID": 77}})",
      kClasses);
  ASSERT_TRUE(read);
  const auto device = read->decodeObject<VLLTCGeneratorDevice>("device");
  ASSERT_NE(device, nullptr);
  device->open();
  EXPECT_EQ(device->midiEndpoint()->uniqueID(), 77);
  EXPECT_EQ(device->generator()->audioObjectId(), mLoopback->id());
}

}  // namespace
}  // namespace velor
