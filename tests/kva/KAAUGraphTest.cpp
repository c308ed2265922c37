// SPDX-License-Identifier: MIT
#include "kva/KAAUGraph.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/ErrOf.h"

namespace velor {
namespace {

class KAAUGraphTest : public testing::Test {
 protected:
  static std::string err(const std::string& method, audio::OSStatus status) {
    return "err: Error: " + method + " (" + std::to_string(status) + ")";
  }

  host::SimulatedHost mHost;
  const std::unique_ptr<audio::AudioService> mService =
      audio::serviceOver(std::make_unique<audio::BuiltinAudio>());
};

TEST_F(KAAUGraphTest, HasOneOutputAndNoNodeFeedsTwo) {
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

  const audio::AudioObjectID device = mService->deviceForUID("velor.loopback");
  std::vector<std::unique_ptr<audio::AudioDeviceStream>> streams;
  for (std::size_t i = 0; i < audio::VirtualAudioDevice::kStreams; ++i) {
    streams.push_back(mService->open(device, {}));
  }
  EXPECT_EQ(errOf([&] { graph.start(); }),
            err("KADefaultOutputUnit::start", audio::kAudioHardwareUnspecifiedError));
}

}  // namespace
}  // namespace velor
