// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kva/KAAUGraph.h"
#include "kva/KAHALAudioSystem.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "sim/SimulatedHost.h"
#include "tests/support/ErrOf.h"

namespace velor {
namespace {

// One device, which refuses to be opened.
class StubOutside final : public audio::AudioOutside {
 public:
  void start(audio::AudioInside& inside) override {
    audio::AudioDeviceDescription device;
    device.uid = "uid.stage";
    device.name = "Stage";
    device.sampleRate = 48000;
    device.output.streams = {{"Main", 2}, {"", 1}, {"LTC in", 1}};
    device.output.isDefault = true;
    mInside = &inside;
    mDevice = inside.deviceAppeared(*this, device);
  }
  void stop() override {}
  void vanish() { mInside->deviceVanished(mDevice); }
  std::unique_ptr<audio::AudioDeviceStream> open(audio::AudioObjectID,
                                                 const audio::AudioStreamRequest&) override {
    return nullptr;
  }
  audio::OSStatus translateTime(audio::AudioObjectID, const audio::AudioTimeStamp&,
                                audio::AudioTimeStamp&) noexcept override {
    return audio::kAudioHardwareNotRunningError;
  }
  void requestBufferFrames(audio::AudioObjectID, std::uint32_t) override {}
  std::string description() override { return {}; }
  std::optional<audio::AudioServerStatus> serverStatus() override { return std::nullopt; }

 private:
  audio::AudioInside* mInside = nullptr;
  audio::AudioObjectID mDevice = 0;
};

class KAHALAudioTest : public testing::Test {
 protected:
  KAHALAudioTest() {
    auto outside = std::make_unique<StubOutside>();
    mOutside = outside.get();
    std::vector<std::unique_ptr<audio::AudioOutside>> outsides;
    outsides.push_back(std::move(outside));
    mService = std::make_unique<audio::AudioService>(std::move(outsides));
    audio::setService(mService.get());
  }
  ~KAHALAudioTest() override {
    KVSharedInstances::clear();
    mService.reset();
    audio::setService(nullptr);
  }
  static std::string err(const std::string& method, audio::OSStatus status) {
    return "err: Error: " + method + " (" + std::to_string(status) + ")";
  }

  host::SimulatedHost mHost;
  StubOutside* mOutside = nullptr;
  std::unique_ptr<audio::AudioService> mService;
};

TEST_F(KAHALAudioTest, AChannelIsNamedAfterItsStreamAndElseItsDevice) {
  const auto device = KAHALAudioSystem::defaultSystem().audioDeviceForUID("uid.stage");
  ASSERT_NE(device, nullptr);
  using Names = std::vector<std::string>;
  EXPECT_EQ(device->channelNamesInScope(audio::AudioDirection::output),
            (Names{"Main 1", "Main 2", "Stage 1", "LTC in 1"}));
  EXPECT_EQ(device->portNamesInScope(audio::AudioDirection::output),
            (Names{"Main 1", "Main 2", "Stage 1", "LTC in"}));
  EXPECT_EQ(device->numChannelsInScope(audio::AudioDirection::output), 4U);
  EXPECT_EQ(device->numInputChannels(), 0U);
  EXPECT_EQ(KAHALAudioSystem::defaultSystem().defaultInputDevice(), nullptr);

  mOutside->vanish();
  EXPECT_EQ(errOf([&] { static_cast<void>(device->deviceUID()); }),
            err("KAHALAudioDevice::deviceUID", audio::kAudioHardwareBadObjectError));
}

TEST_F(KAHALAudioTest, AGraphHasOneOutputAndNoNodeFeedsTwo) {
  KAAUGraph graph;
  EXPECT_EQ(errOf([&] { graph.initialize(); }),
            err("KAAUGraph::initialize", audio::kAUGraphErr_OutputNodeErr));
  const KANode output = graph.addNode(KAComponent::halOutput);
  const KANode source = graph.addNode(KAComponent::converter);
  const KANode filter = graph.addNode(KAComponent::lowPass);
  EXPECT_EQ(errOf([&] { graph.addNode(KAComponent::halOutput); }),
            err("KAAUGraph::addNode", audio::kAUGraphErr_OutputNodeErr));
  EXPECT_EQ(errOf([&] { static_cast<void>(graph.nodeInfo(source)); }),
            err("KAAUGraph::nodeInfo", audio::kAUGraphErr_NodeNotFound));
  graph.open();
  graph.connectNode(source, 0, filter, 0);
  const std::string refused = err("KAAUGraph::connectNode", audio::kAUGraphErr_InvalidConnection);
  for (const auto& [from, to] :
       {std::pair(filter, source), std::pair(source, output), std::pair(output, source)}) {
    EXPECT_EQ(errOf([&, a = from, b = to] { graph.connectNode(a, 0, b, 0); }), refused);
  }
  EXPECT_EQ(errOf([&] { graph.connectNode(4, 0, output, 0); }),
            err("KAAUGraph::connectNode", audio::kAUGraphErr_NodeNotFound));
  graph.connectNode(filter, 0, output, 0);
  graph.initialize();
  EXPECT_EQ(errOf([&] { graph.start(); }),
            err("KADefaultOutputUnit::start", audio::kAudioHardwareUnspecifiedError));
}

}  // namespace
}  // namespace velor
