// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kva/KAAUGraph.h"
#include "kva/KAHALAudioSystem.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "tests/support/ErrOf.h"
#include "tests/support/MockAudioService.h"

namespace velor {
namespace {

using audio::OSStatus;
using testing::_;
using testing::An;
using testing::DoAll;
using testing::NiceMock;
using testing::Return;
using testing::SetArgPointee;

class KAHALAudioTest : public testing::Test {
 protected:
  KAHALAudioTest() {
    audio::setService(&mService);
    ON_CALL(mService, AudioComponentFindNext(_)).WillByDefault(Return(true));
  }
  ~KAHALAudioTest() override {
    KVSharedInstances::clear();
    audio::setService(nullptr);
  }

  NiceMock<audio::MockAudioService> mService;
};

TEST_F(KAHALAudioTest, AFailureIsRaisedWithTheMethodAndTheStatus) {
  constexpr OSStatus kStatus = audio::kAudioUnitErr_InvalidProperty;
  KAAUGraph graph;
  KAHALDeviceOutputUnit unit;
  const auto device = KAHALAudioDevice::initWithAudioObjectID(7);
  ON_CALL(mService, AudioUnitSetProperty).WillByDefault(Return(kStatus));
  ON_CALL(mService, AudioUnitGetProperty).WillByDefault(Return(kStatus));
  ON_CALL(mService, AudioOutputUnitStart).WillByDefault(Return(kStatus));
  ON_CALL(mService, AUGraphConnectNodeInput).WillByDefault(Return(kStatus));
  ON_CALL(mService, AUGraphInitialize).WillByDefault(Return(kStatus));
  ON_CALL(mService, AudioObjectGetPropertyData(_, _, An<std::string*>()))
      .WillByDefault(Return(kStatus));
  const std::vector<std::pair<std::string, std::function<void()>>> calls = {
      {"-[KAAudioUnit setPropertyGlobal:data:size:]", [&] { unit.setDeviceID(7); }},
      {"-[KAAudioUnit setProperty:scope:element:data:size:]",
       [&] { unit.enableInput(true, true); }},
      {"-[KAAudioUnit getPropertyFloat64:scope:element:]", [&] { unit.sampleRate(); }},
      {"-[KAAudioUnit setInputRenderCallback:refCon:bus:]",
       [&] { unit.setInputRenderCallback(nullptr, nullptr, 0); }},
      {"-[KADefaultOutputUnit start]", [&] { unit.start(); }},
      {"-[KAAUGraph connectNode:output:destinationNode:input:]",
       [&] { graph.connectNode(1, 0, 2, 0); }},
      {"-[KAAUGraph initialize]", [&] { graph.initialize(); }},
      {"-[KAHALAudioDevice deviceUID]", [&] { device->deviceUID(); }}};
  for (const auto& [method, call] : calls) {
    EXPECT_EQ(errOf(call), "err: Error: " + method + " (-10879)");
  }
}

TEST_F(KAHALAudioTest, AChannelIsNamedAfterItsStreamAndElseItsDevice) {
  const auto device = KAHALAudioDevice::initWithAudioObjectID(7);
  const auto answer = [this](audio::AudioObjectPropertySelector selector,
                             const std::vector<std::uint32_t>& value) {
    ON_CALL(
        mService,
        AudioObjectGetPropertyData(
            7U,
            testing::AllOf(testing::Field(&audio::AudioObjectPropertyAddress::mSelector, selector),
                           testing::Field(&audio::AudioObjectPropertyAddress::mScope,
                                          audio::kAudioObjectPropertyScopeOutput)),
            An<std::vector<std::uint32_t>*>()))
        .WillByDefault(DoAll(SetArgPointee<2>(value), Return(0)));
  };
  const auto name = [this](audio::AudioObjectID object, const std::string& text) {
    ON_CALL(mService, AudioObjectGetPropertyData(object, _, An<std::string*>()))
        .WillByDefault(DoAll(SetArgPointee<2>(text), Return(0)));
  };
  answer(audio::kAudioDevicePropertyStreams, {20, 21});
  answer(audio::kAudioDevicePropertyStreamConfiguration, {2, 1});
  name(7, "Stage");
  name(20, "Main");
  ON_CALL(mService, AudioObjectGetPropertyData(21U, _, An<std::string*>()))
      .WillByDefault(Return(audio::kAudioHardwareUnknownPropertyError));
  EXPECT_EQ(device->channelNamesInScope(audio::kAudioObjectPropertyScopeOutput),
            (std::vector<std::string>{"Main 1", "Main 2", "Stage 1"}));
  EXPECT_EQ(device->numChannelsInScope(audio::kAudioObjectPropertyScopeOutput), 3U);
  EXPECT_EQ(KAHALAudioDevice::initWithAudioObjectID(0), nullptr);
}

TEST_F(KAHALAudioTest, AUnitOfItsOwnGoesWithItsObjectAndOneOfAGraphWithTheGraph) {
  EXPECT_CALL(mService, AudioComponentInstanceNew(audio::kHALOutputComponent, _))
      .WillOnce(DoAll(SetArgPointee<1>(5), Return(0)));
  EXPECT_CALL(mService, AudioComponentInstanceDispose(5)).Times(1);
  EXPECT_CALL(mService, NewAUGraph(_)).WillOnce(DoAll(SetArgPointee<0>(3), Return(0)));
  EXPECT_CALL(mService, AUGraphNodeInfo(3, 9, _)).WillOnce(DoAll(SetArgPointee<2>(6), Return(0)));
  EXPECT_CALL(mService, DisposeAUGraph(3)).Times(1);
  const KAHALDeviceOutputUnit own;
  const KAAUGraph graph;
  const KAHALDeviceOutputUnit node(9, graph);
  EXPECT_EQ(own.au(), 5U);
  EXPECT_EQ(node.au(), 6U);
  ON_CALL(mService, AudioComponentFindNext(_)).WillByDefault(Return(false));
  EXPECT_DEATH(KAHALDeviceOutputUnit(), "could not find audio component for KAHALDeviceOutputUnit");
}

}  // namespace
}  // namespace velor
