// SPDX-License-Identifier: MIT
#include "Velor/devices/VLDevice.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/devices/VLDeviceStatusImageTransformer.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

struct RecordingSwitch final : VLTimecodeDestinationDeviceDelegate {
  void deviceDidEnableTransmit(VLTimecodeDestinationDevice&, bool enable) override {
    calls.push_back(enable);
  }
  std::vector<bool> calls;
};

class VLDeviceTest : public DeviceFixture {
 protected:
  std::shared_ptr<VLMIDIEndpointDevice> deviceOf(midi::MIDIEndpointRef ref) {
    return VLMIDIEndpointDevice::deviceWithMIDIEndpoint(std::make_shared<KVMIDIEndpoint>(ref));
  }
  static std::shared_ptr<VLTimecodeDestinationDevice> wrapped(std::shared_ptr<VLDevice> device) {
    return VLTimecodeDestinationDevice::deviceWithDevice(std::move(device), {});
  }
  const std::shared_ptr<RecordingSwitch> mSwitch = std::make_shared<RecordingSwitch>();
};

TEST_F(VLDeviceTest, DevicesOfOneEndpointAreEqualAndAWrapperEqualsOnlyWrappers) {
  const auto desk = appear("desk");
  const auto lamp = appear("lamp");
  EXPECT_TRUE(deviceOf(desk)->isEqual(*deviceOf(desk)));
  EXPECT_FALSE(deviceOf(desk)->isEqual(*deviceOf(lamp)));
  EXPECT_EQ(deviceOf(desk)->hash(), desk ^ 0xB16D1C5U);
  const auto wrapper = wrapped(deviceOf(desk));
  EXPECT_TRUE(wrapper->isEqual(*wrapped(deviceOf(desk))));
  EXPECT_FALSE(wrapper->isEqual(*wrapped(deviceOf(lamp))));
  EXPECT_FALSE(wrapper->isEqual(*deviceOf(desk)));
  EXPECT_FALSE(deviceOf(desk)->isEqual(*wrapper));
  EXPECT_EQ(wrapper->hash(), desk ^ 0xB16D1C5U ^ 0xB16B00B5U);
}

TEST_F(VLDeviceTest, WrappersPassEverythingOnAtAnyDepthAndOtherKeysHaveNothing) {
  const auto desk = appear("desk");
  mTable.MIDIObjectSetIntegerProperty(desk, midi::kMIDIPropertyUniqueID, -17);
  const auto device = deviceOf(desk);
  const auto twice = wrapped(wrapped(device));
  EXPECT_EQ(twice->midiEndpoint(), device->midiEndpoint());
  EXPECT_EQ(twice->name(), "desk");
  EXPECT_EQ(twice->uuid(), "-17");
  EXPECT_EQ(twice->type(), 0x6D696469U);
  EXPECT_EQ(twice->deviceStatus(), 0U);
  EXPECT_EQ(twice->description(),
            "Timecode Destination Device: Timecode Destination Device: desk [-17]");
  EXPECT_FALSE(device->getPropertyForKey("name").has_value());
  device->setProperty(std::shared_ptr<KVMIDIEndpoint>(), kKVMIDIEndpointDevice);
  EXPECT_EQ(twice->midiEndpoint()->endpoint(), desk);
}

TEST_F(VLDeviceTest, TheSwitchTellsItsDelegateEachTimeAndNobodyWhileItIsDecoded) {
  const auto device =
      VLTimecodeDestinationDevice::deviceWithDevice(deviceOf(appear("desk")), mSwitch);
  EXPECT_FALSE(device->enable());
  device->setEnable(true);
  device->setEnable(true);
  device->setEnable(false);
  EXPECT_EQ(mSwitch->calls, (std::vector{true, true, false}));
  device->setDelegate(std::weak_ptr<RecordingSwitch>());
  device->setEnable(true);
  EXPECT_TRUE(device->enable());
  EXPECT_EQ(mSwitch->calls.size(), 3U);
  EXPECT_THROW(VLTimecodeDestinationDevice::deviceWithDevice(nullptr, mSwitch), KVException);
}

TEST_F(VLDeviceTest, DestroyTakesAVirtualEndpointOutOfTheSystemAndRaisesForOthers) {
  const auto device = deviceOf(makeVirtual("generator", 5));
  const auto wrapper = wrapped(device);
  ASSERT_EQ(mTable.MIDIGetNumberOfDestinations(), 1U);
  wrapper->destroy();
  EXPECT_EQ(mTable.MIDIGetNumberOfDestinations(), 0U);
  EXPECT_EQ(device->midiEndpoint(), nullptr);
  EXPECT_EQ(wrapper->name(), std::nullopt);
  EXPECT_EQ(wrapper->uuid(), std::nullopt);
  wrapper->destroy();  // and once more is no harm
  EXPECT_THROW(deviceOf(appear("desk"))->destroy(), KVException);
}

TEST_F(VLDeviceTest, StoredDevicesComeBackAsTheirClassWithWhatIsThereOfThem) {
  const auto desk = appear("desk");
  const auto wrapper = wrapped(deviceOf(desk));
  wrapper->setEnable(true);
  store::KeyedArchiver coder;
  coder.encodeObject(wrapper, "wrapper");
  const std::string document = coder.data().value();
  EXPECT_LT(document.find("device.destinationdevice"), document.find("enabled.device"));
  const auto read = [](const std::string& text) {
    return store::KeyedUnarchiver::read(text, kDeviceClasses)
        .value()
        .decodeObject<VLTimecodeDestinationDevice>("wrapper");
  };
  const auto back = read(document);
  ASSERT_NE(back, nullptr);
  EXPECT_TRUE(back->enable());
  EXPECT_TRUE(back->isEqual(*wrapper));

  vanish(desk);
  const auto lost = read(document);
  ASSERT_NE(lost, nullptr);
  EXPECT_TRUE(lost->enable());
  EXPECT_EQ(lost->name(), std::nullopt);
  EXPECT_EQ(lost->type(), kVLDeviceTypeMIDI);

  const auto empty = read(R"({"wrapper": {"$class": "VLTimecodeDestinationDevice"}})");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->name(), "Error!");
  EXPECT_EQ(empty->uuid(), std::nullopt);
  EXPECT_FALSE(empty->enable());
}

TEST(VLDeviceStatusImageTransformer, EachStatusHasItsLampAndAnyOtherNone) {
  const auto lampOf = VLDeviceStatusImageTransformer::transformedValue;
  EXPECT_EQ(lampOf(0x72756E20), VLStatusImage::available);
  EXPECT_EQ(lampOf(0x6672776C), VLStatusImage::partiallyAvailable);
  EXPECT_EQ(lampOf(0x21657272), VLStatusImage::unavailable);
  EXPECT_EQ(lampOf(0x206E7572), VLStatusImage::none);  // 'run ' with its bytes turned round
}

}  // namespace
}  // namespace velor
