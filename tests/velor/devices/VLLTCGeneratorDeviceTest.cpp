// SPDX-License-Identifier: MIT
#include "Velor/devices/VLLTCGeneratorDevice.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kvtimecode/ltc_utils.h"
#include "tests/support/AudioRecorder.h"
#include "tests/support/LTCSignalReader.h"
#include "tests/support/PublishedLTC.h"
#include "tests/velor/devices/LoopbackFixture.h"

namespace velor {
namespace {

constexpr store::KeyedClass kClasses[] = {
    store::KeyedClass::of<KVMIDIEndpoint>(), store::KeyedClass::of<VLMIDIEndpointDevice>(),
    store::KeyedClass::of<VLTimecodeDestinationDevice>(),
    store::KeyedClass::of<VLLTCGeneratorDevice>(), store::KeyedClass::of<KVLTCGenerator>()};

class VLLTCGeneratorDeviceTest : public LoopbackFixture {
 protected:
  struct Heard {
    std::int32_t frame;
    double start;  // host time, ns
  };
  // Runs for a while and reads what the device plays. A frame that is none is -1.
  std::vector<Heard> heardFor(double seconds) {
    std::vector<Heard> heard;
    LTCSignalReader reader(1920, [&](const PublishedBits& bits, double start) {
      std::int32_t frame = heard.empty() ? 0 : heard.back().frame;
      const std::int32_t limit = frame + 2 * 90000;
      while (frame < limit &&
             publishedLTC(ltc_smptetime_from_frame_number(frame, kSMPTETimeType25), {}) != bits) {
        ++frame;
      }
      heard.push_back({frame < limit ? frame : -1, start / 48000 * 1e9});
    });
    AudioRecorder recorder(mLoopback->id(), 48000 * 2);
    for (; seconds > 0; --seconds) {
      mHost.advance(1'000'000'000);
      const auto [place, samples] = recorder.drain();
      reader.read(place - 256, samples);  // it is heard a period later
    }
    return heard;
  }
};

TEST_F(VLLTCGeneratorDeviceTest, WhatTheClockSendsLeavesAsLTCInStepWithTheClock) {
  const auto device = created();
  EXPECT_EQ(device->name(), "LTC Generator 1");
  EXPECT_EQ(manager().createGenerator()->name(), "LTC Generator 2");
  mHost.settle();
  inputOf(*device)->setEnable(true);
  clock().setSmpteFormat(kSMPTETimeType25);
  clock().setTime(ltc_smptetime_from_frame_number(90000, kSMPTETimeType25));
  int told = 0;
  const auto token = device->addObserver("deviceStatus", [&told](const auto&) { ++told; });
  clock().start();
  const auto heard = heardFor(10);
  mHost.advance(kFrame25 / 2);  // the middle of a frame
  const auto now = static_cast<double>(mHost.AudioGetCurrentHostTime());
  // Behind a tick the clock holds the time of the next.
  const std::int32_t current = ltc_frame_number_from_smptetime(clock().time()) - 1;

  ASSERT_GT(heard.size(), 235U);
  for (std::size_t i = 1; i < heard.size(); ++i) {
    ASSERT_EQ(heard[i].frame, heard[0].frame + static_cast<std::int32_t>(i));
    ASSERT_NEAR(heard[i].start - heard[0].start, static_cast<double>(i) * kFrame25, 21000);
  }
  // The frame that would leave now, by those that left.
  EXPECT_EQ(
      heard[0].frame + static_cast<std::int32_t>(std::floor((now - heard[0].start) / kFrame25)),
      current);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusRunning);
  clock().stop();
  mHost.advance(1'000'000'000);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusIdle);
  EXPECT_EQ(told, 2);
}

TEST_F(VLLTCGeneratorDeviceTest, OnlyQuarterFramesMakeItPlay) {
  const auto device = created();
  midi::MIDIPortRef port = 0;
  ASSERT_EQ(mTable.MIDIOutputPortCreate(core().defaultClient(), "tester", &port), 0);
  std::array<std::byte, 512> storage{};
  auto* list = reinterpret_cast<midi::MIDIPacketList*>(storage.data());
  midi::MIDIPacket* packet = midi::MIDIPacketListInit(list);
  const std::uint8_t fullFrame[] = {0xF0, 0x7F, 0x7F, 1, 1, 0x21, 2, 3, 4, 0xF7};
  ASSERT_NE(midi::MIDIPacketListAdd(list, storage.size(), packet, 0, sizeof fullFrame, fullFrame),
            nullptr);
  ASSERT_EQ(mTable.MIDISend(port, device->midiEndpoint()->endpoint(), list), 0);
  EXPECT_TRUE(heardFor(1).empty());
  EXPECT_EQ(device->generator()->tcstring(), "--:--:--:--");
}

TEST_F(VLLTCGeneratorDeviceTest, ARemovedOneLeavesTheSystemWhoeverStillHoldsIt) {
  auto device = created();
  const auto input = inputOf(*device);
  input->setEnable(true);
  const auto ref = device->midiEndpoint()->endpoint();
  clock().start();
  mHost.advance(500'000'000);
  manager().removeDevicesAtIndexes({0});
  EXPECT_TRUE(manager().destinations().empty());
  EXPECT_EQ(quarterFramesTo(ref), 0);
  mHost.advance(1'000'000'000);
  EXPECT_EQ(device->deviceStatus(), kVLDeviceStatusIdle);
  device.reset();
  mHost.advance(1'000'000'000);
}

TEST_F(VLLTCGeneratorDeviceTest, ItComesBackUnderItsIdAsItWasInAnotherRunAndInThisOne) {
  auto device = created();
  device->generator()->setUserbits(0x12345678);
  inputOf(*device)->setEnable(true);
  const auto id = device->midiEndpoint()->uniqueID();
  const std::string document = state();
  device.reset();
  for (const bool another : {true, false}) {
    if (another) {
      restart();
      mHost.settle();
      EXPECT_TRUE(core().destinations().empty());
    }
    restore(document, kClasses);
    mHost.settle();
    const auto devices = manager().devices();
    ASSERT_EQ(devices.size(), 1U);
    const auto back = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(devices[0]);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->type(), 0x6C746367U);
    EXPECT_EQ(back->name(), "LTC Generator 1");
    EXPECT_EQ(back->midiEndpoint()->uniqueID(), id);
    EXPECT_EQ(back->generator()->userbits(), 0x12345678U);
    EXPECT_EQ(listed(), (Listed{"+LTC Generator 1"}));
    back->generator()->setUserbits(0);
    clock().start();
    EXPECT_GT(heardFor(1).size(), 15U);
    clock().stop();
    back->generator()->setUserbits(0x12345678);
  }
  EXPECT_EQ(mLog.errors(), 0U);
}

TEST_F(VLLTCGeneratorDeviceTest, AnArchiveWithoutAGeneratorGivesOneOnTheDefaultOutput) {
  const auto read = store::KeyedUnarchiver::read(
      R"({"device": {"$class": "VLLTCGeneratorDevice", "name": "old", "MIDIUniqueID": 77}})",
      kClasses);
  ASSERT_TRUE(read) << read.error;
  const auto device = read.coder->decodeObject<VLLTCGeneratorDevice>("device");
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->midiEndpoint()->uniqueID(), 77);
  EXPECT_EQ(device->generator()->audioObjectId(), mLoopback->id());
}

}  // namespace
}  // namespace velor
