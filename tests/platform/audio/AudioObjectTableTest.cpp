// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/AudioObjectTable.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
using Parameters = VirtualAudioDevice::Parameters;

Parameters device(const std::string& uid, std::uint32_t period = 256) {
  Parameters parameters;
  parameters.uid = uid;
  parameters.name = uid;
  parameters.period = period;
  parameters.maxPeriod = 16384;
  return parameters;
}

class AudioObjectTableTest : public testing::Test {
 protected:
  // One back end with the devices of each list.
  void make(const std::vector<std::vector<Parameters>>& lists) {
    std::vector<std::unique_ptr<AudioOutside>> outsides;
    for (const auto& list : lists) {
      auto builtin = std::make_unique<BuiltinAudio>(list);
      mBuiltins.push_back(builtin.get());
      outsides.push_back(std::move(builtin));
    }
    mTable = std::make_unique<AudioObjectTable>(std::move(outsides));
  }
  AudioObjectID deviceOf(const std::string& uid) { return deviceOfUID(*mTable, uid); }
  template <class T = AudioObjectID>
  T ofSystem(AudioObjectPropertySelector selector) {
    return propertyOf<T>(*mTable, kAudioObjectSystemObject, {selector});
  }

  host::SimulatedHost mHost;
  std::vector<BuiltinAudio*> mBuiltins;
  std::unique_ptr<AudioObjectTable> mTable;
};

TEST_F(AudioObjectTableTest, TheFirstBackEndThatHasAFitDeviceGivesTheDefaultOne) {
  Parameters unfit = device("hdmi");
  unfit.isDefault = false;
  Parameters microphone = device("microphone");
  microphone.outputs = 0;
  microphone.isPresent = false;
  make({{unfit, microphone}, {device("loop"), device("hdmi")}});
  const AudioObjectID loop = deviceOf("loop");
  EXPECT_EQ(ofSystem(kAudioHardwarePropertyDefaultOutputDevice), loop);
  EXPECT_EQ(ofSystem(kAudioHardwarePropertyDefaultInputDevice), loop);
  const auto devices = ofSystem<std::vector<std::uint32_t>>(kAudioHardwarePropertyDevices);
  EXPECT_EQ(devices.front(), loop);
  EXPECT_EQ(devices.size(), 3U);

  std::vector<AudioObjectPropertySelector> heard;
  const auto listener = [](AudioObjectID, const AudioObjectPropertyAddress& address, void* list) {
    static_cast<std::vector<AudioObjectPropertySelector>*>(list)->push_back(address.mSelector);
  };
  for (const auto selector :
       {kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultInputDevice,
        kAudioHardwarePropertyDefaultOutputDevice}) {
    ASSERT_EQ(mTable->AudioObjectAddPropertyListener(kAudioObjectSystemObject, {selector}, listener,
                                                     &heard),
              0);
  }
  mBuiltins[0]->device(1).appear();
  mHost.settle();
  EXPECT_EQ(heard,
            (std::vector{kAudioHardwarePropertyDevices, kAudioHardwarePropertyDefaultInputDevice}));
  EXPECT_EQ(ofSystem(kAudioHardwarePropertyDefaultInputDevice), deviceOf("microphone"));
  EXPECT_EQ(ofSystem(kAudioHardwarePropertyDefaultOutputDevice), loop);
  // Of two with one UID, that of the first back end answers to it, while it is there.
  const AudioObjectID first = deviceOf("hdmi");
  mBuiltins[0]->device(0).vanish();
  const AudioObjectID second = deviceOf("hdmi");
  EXPECT_NE(second, 0U);
  EXPECT_NE(second, first);
  mBuiltins[0]->device(0).appear();
  EXPECT_EQ(deviceOf("hdmi"), first);
  EXPECT_EQ(mTable->serverDescription(), "in process");
}

TEST_F(AudioObjectTableTest, AGraphIsOnlyWhatASingleOutputCanPull) {
  make({{device("loop")}});
  AudioObjectTable& audio = *mTable;
  AUGraph graph = 0;
  AUNode output = 0;
  AUNode source = 0;
  AUNode filter = 0;
  AUNode other = 0;
  AudioUnit unit = 0;
  ASSERT_EQ(audio.NewAUGraph(&graph), 0);
  EXPECT_EQ(audio.AUGraphAddNode(graph, {1, 2, 3}, &other), kAUGraphErr_NodeNotFound);
  ASSERT_EQ(audio.AUGraphAddNode(graph, kConverterComponent, &source), 0);
  EXPECT_EQ(audio.AUGraphStart(graph), kAUGraphErr_OutputNodeErr);
  ASSERT_EQ(audio.AUGraphAddNode(graph, kHALOutputComponent, &output), 0);
  EXPECT_EQ(audio.AUGraphAddNode(graph, kHALOutputComponent, &other), kAUGraphErr_OutputNodeErr);
  ASSERT_EQ(audio.AUGraphAddNode(graph, kLowPassComponent, &filter), 0);
  EXPECT_EQ(audio.AUGraphInitialize(graph), kAudioUnitErr_Uninitialized);
  ASSERT_EQ(audio.AUGraphOpen(graph), 0);

  ASSERT_EQ(audio.AUGraphConnectNodeInput(graph, source, 0, filter, 0), 0);
  struct Connection {
    AUNode from;
    std::uint32_t output;
    AUNode to;
  };
  const Connection refused[] = {
      {source, 0, output}, {filter, 0, source}, {output, 0, source}, {filter, 1, output}};
  for (const auto& [from, bus, to] : refused) {
    EXPECT_EQ(audio.AUGraphConnectNodeInput(graph, from, bus, to, 0),
              kAUGraphErr_InvalidConnection);
  }
  EXPECT_EQ(audio.AUGraphConnectNodeInput(graph, filter, 0, 9, 0), kAUGraphErr_NodeNotFound);
  ASSERT_EQ(audio.AUGraphConnectNodeInput(graph, filter, 0, output, 0), 0);

  // Formats that do not fit together are found out at the latest here.
  ASSERT_EQ(audio.AUGraphNodeInfo(graph, source, &unit), 0);
  const auto setRate = [&](AudioUnitScope scope) {
    const double rate = 96000;
    ASSERT_EQ(audio.AudioUnitSetProperty(unit, kAudioUnitProperty_SampleRate, scope, 0, &rate,
                                         sizeof rate),
              0);
  };
  setRate(kAudioUnitScope_Input);
  EXPECT_EQ(audio.AUGraphInitialize(graph), kAudioUnitErr_FormatNotSupported);
  setRate(kAudioUnitScope_Output);
  EXPECT_EQ(audio.AUGraphInitialize(graph), 0);
  EXPECT_EQ(audio.AudioComponentInstanceDispose(unit), kAudioUnitErr_CannotDoInCurrentContext);
  EXPECT_EQ(audio.DisposeAUGraph(graph), 0);
  EXPECT_EQ(audio.AudioUnitInitialize(unit), kAudioHardwareBadObjectError);
  EXPECT_EQ(audio.AUGraphStart(graph), kAudioHardwareBadObjectError);
}

TEST_F(AudioObjectTableTest, LongCyclesComeInPiecesThatJoinWithoutASeam) {
  make({{device("long", 10000)}});
  const AudioObjectID loop = deviceOf("long");
  AudioRecorder recorder(*mTable, loop);
  AudioPlayer player(*mTable, loop);
  mHost.advance(2000 * kMs);
  recorder.stop();
  EXPECT_EQ(player.longest, kMaxFramesPerSlice);
  const std::size_t frames = recorder.frames;
  const double first = recorder.log[0].time.mSampleTime;
  ASSERT_GT(frames, 80000U);
  EXPECT_EQ(recorder.log[1].time.mSampleTime, first + kMaxFramesPerSlice);
  EXPECT_NEAR(static_cast<double>(recorder.log[1].time.mHostTime - recorder.log[0].time.mHostTime),
              kMaxFramesPerSlice / 48000.0 * 1e9, 1);
  for (std::size_t i = 20000; i < frames; ++i) {
    ASSERT_EQ(delayOf(recorder.left[i], first + static_cast<double>(i)), 10000);
  }
}

TEST_F(AudioObjectTableTest, AUnitFollowsItsDeviceAndItsRateAndCountsFromZeroWhenAsked) {
  make({{device("one"), device("two")}});
  const AudioObjectID one = deviceOf("one");
  const AudioObjectID two = deviceOf("two");
  AudioPlayer player(*mTable, one);
  AudioRecorder recorder(*mTable, two);
  std::vector<AudioUnitPropertyID> heard;
  const auto listener = [](void* list, AudioUnit, AudioUnitPropertyID property, AudioUnitScope,
                           AudioUnitElement) {
    static_cast<std::vector<AudioUnitPropertyID>*>(list)->push_back(property);
  };
  for (const AudioUnitPropertyID property :
       {kAudioOutputUnitProperty_CurrentDevice, kAudioDevicePropertyNominalSampleRate}) {
    ASSERT_EQ(mTable->AudioUnitAddPropertyListener(player.output, property, listener, &heard), 0);
  }
  mHost.advance(100 * kMs);
  const std::array<std::int32_t, 2> map{1, 1};
  ASSERT_EQ(player.set(kAudioOutputUnitProperty_ChannelMap, map, kAudioUnitScope_Output), 0);
  ASSERT_EQ(player.set(kAudioOutputUnitProperty_CurrentDevice, two), 0);
  ASSERT_EQ(player.set(kAudioOutputUnitProperty_CurrentDevice, two), 0);  // no other one
  mHost.advance(100 * kMs);
  // It plays there now, and the map was for the channels of the former device.
  EXPECT_GT(recorder.left[recorder.frames - 1], 0);
  EXPECT_EQ(recorder.left[recorder.frames - 1], -recorder.right[recorder.frames - 1]);
  mBuiltins[0]->device(1).setSampleRate(44100);
  mHost.advance(100 * kMs);
  EXPECT_EQ(heard, (std::vector<AudioUnitPropertyID>{kAudioOutputUnitProperty_CurrentDevice,
                                                     kAudioDevicePropertyNominalSampleRate}));
  EXPECT_EQ(propertyOfUnit<double>(*mTable, player.output, kAudioUnitProperty_SampleRate,
                                   kAudioUnitScope_Output),
            44100);

  // The pattern goes by the times that the callback is given.
  ASSERT_EQ(mTable->AUGraphStop(player.graph), 0);
  ASSERT_EQ(player.set(kAudioOutputUnitProperty_StartTimestampsAtZero, std::uint32_t{1}), 0);
  mHost.advance(100 * kMs);
  const std::size_t silent = recorder.frames;
  ASSERT_EQ(mTable->AUGraphStart(player.graph), 0);
  mHost.advance(100 * kMs);
  recorder.stop();
  std::size_t at = silent;
  while (at < recorder.frames && recorder.left[at] == 0) {
    ++at;
  }
  ASSERT_LT(at + 100, recorder.frames);
  EXPECT_EQ(recorder.left[at], patternAt(0));
  EXPECT_EQ(recorder.left[at + 99], patternAt(99));
}

TEST_F(AudioObjectTableTest, ListenersThatAreRemovedByAnotherAreNotCalled) {
  make({{device("loop")}});
  struct Calls {
    AudioObjectTable* table;
    int first = 0;
    int second = 0;
  } calls{mTable.get()};
  static constexpr AudioObjectPropertyAddress kList{kAudioHardwarePropertyDevices};
  static constexpr auto kSecond = [](AudioObjectID, const AudioObjectPropertyAddress&, void* self) {
    ++static_cast<Calls*>(self)->second;
  };
  const auto first = [](AudioObjectID system, const AudioObjectPropertyAddress&, void* self) {
    ++static_cast<Calls*>(self)->first;
    static_cast<Calls*>(self)->table->AudioObjectRemovePropertyListener(system, kList, kSecond,
                                                                        self);
  };
  mTable->AudioObjectAddPropertyListener(kAudioObjectSystemObject, kList, first, &calls);
  mTable->AudioObjectAddPropertyListener(kAudioObjectSystemObject, kList, kSecond, &calls);
  mBuiltins[0]->device().vanish();
  mHost.settle();
  EXPECT_EQ(calls.first, 1);
  EXPECT_EQ(calls.second, 0);
}

}  // namespace
}  // namespace velor::audio
