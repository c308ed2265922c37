// SPDX-License-Identifier: MIT
#include "Velor/devices/VLDevice.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

class VLDeviceTest : public DeviceFixture {
 protected:
  std::shared_ptr<VLMIDIEndpointDevice> deviceOf(midi::MIDIEndpointRef ref) {
    return VLMIDIEndpointDevice::deviceWithMIDIEndpoint(std::make_shared<KVMIDIEndpoint>(ref));
  }
  static std::shared_ptr<VLTimecodeDestinationDevice> wrapped(std::shared_ptr<VLDevice> device) {
    return VLTimecodeDestinationDevice::deviceWithDevice(std::move(device), {});
  }
};

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

}  // namespace
}  // namespace velor
