// SPDX-License-Identifier: MIT
// What code may rely on, whichever back end the audio service has.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "platform/audio/builtin/AudioObjectTable.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/audio/jack/JackAudio.h"
#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/JackCable.h"
#include "tests/support/Until.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

// A service, and a device of two channels in
// each direction whose outputs feed its inputs.
struct Setting {
  virtual ~Setting() = default;
  virtual AudioService& audio() = 0;
  // Lets the main loop run until the condition holds; false after 5 s.
  virtual bool until(const std::function<bool()>& condition) = 0;
  virtual std::string uid() = 0;
  virtual void loseDevice() = 0;
  virtual void returnDevice() = 0;
  // ns by which a stamp's host time and the translation of its sample time may differ.
  virtual double tolerance() = 0;
};

std::unique_ptr<AudioObjectTable> tableOver(std::unique_ptr<AudioOutside> outside) {
  std::vector<std::unique_ptr<AudioOutside>> outsides;
  outsides.push_back(std::move(outside));
  return std::make_unique<AudioObjectTable>(std::move(outsides));
}

template <class HostType>
struct BuiltinSetting final : Setting {
  BuiltinSetting() {
    auto builtin = std::make_unique<BuiltinAudio>();
    mBuiltin = builtin.get();
    mTable = tableOver(std::move(builtin));
  }
  AudioService& audio() override { return *mTable; }
  bool until(const std::function<bool()>& condition) override {
    return test::until(mHost, 5, condition);
  }
  std::string uid() override { return "velor.loopback"; }
  void loseDevice() override { mBuiltin->device().vanish(); }
  void returnDevice() override { mBuiltin->device().appear(); }
  double tolerance() override { return 1; }  // they are rounded to the nanosecond

  HostType mHost;
  BuiltinAudio* mBuiltin = nullptr;
  std::unique_ptr<AudioObjectTable> mTable;
};

// A cable that is a client of its own, as the device of a server.
template <class Server>
struct JackSetting final : Setting {
  JackSetting() {
    mServer.enter();
    mServer.start();
    mHost = std::make_unique<host::SystemHost>();
    returnDevice();
    mTable = tableOver(std::make_unique<JackAudio>());
    // A new unit has the default device, which is the server's own.
    EXPECT_TRUE(until([this] {
      return propertyOf<AudioObjectID>(*mTable, kAudioObjectSystemObject,
                                       {kAudioHardwarePropertyDefaultOutputDevice}) != 0;
    }));
  }
  AudioService& audio() override { return *mTable; }
  bool until(const std::function<bool()>& condition) override {
    return test::until(*mHost, 5, condition);
  }
  std::string uid() override { return "Cable"; }
  void loseDevice() override { mCable.reset(); }
  void returnDevice() override { mCable = std::make_unique<test::JackCable>("Cable", 2); }
  // A server smooths its time from cycle to cycle.
  double tolerance() override { return static_cast<double>(kMs); }

  Server mServer;
  std::unique_ptr<host::SystemHost> mHost;
  std::unique_ptr<test::JackCable> mCable;
  std::unique_ptr<AudioObjectTable> mTable;
};

struct ServiceKind {
  const char* name;
  std::unique_ptr<Setting> (*make)();
};

class AudioServiceContract : public testing::TestWithParam<ServiceKind> {
 protected:
  AudioServiceContract() {
    EXPECT_TRUE(until([this] { return findDevice() != 0; }));
    mDevice = findDevice();
  }

  AudioService& audio() { return mSetting->audio(); }
  bool until(const std::function<bool()>& condition) { return mSetting->until(condition); }
  AudioObjectID findDevice() { return deviceOfUID(audio(), mSetting->uid()); }
  // So many further cycles of a count.
  template <class Count>
  bool awaitMore(const Count& count, std::size_t more) {
    const std::size_t target = count + more;
    return until([&count, target] { return count >= target; });
  }
  // So that what was played before has gone by.
  bool awaitQuarterSecond(const AudioRecorder& recorder) {
    return awaitMore(recorder.frames, static_cast<std::size_t>(rate() / 4));
  }
  template <class T>
  T property(AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope = kAudioUnitScope_Global,
             AudioUnitElement element = 0) {
    return propertyOfUnit<T>(audio(), unit, id, scope, element);
  }
  template <class T>
  T ofDevice(AudioObjectPropertySelector selector,
             AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal) {
    return propertyOf<T>(audio(), mDevice, {selector, scope});
  }
  double rate() { return ofDevice<double>(kAudioDevicePropertyNominalSampleRate); }
  std::uint32_t latency(AudioObjectPropertyScope scope) {
    return ofDevice<std::uint32_t>(kAudioDevicePropertyLatency, scope);
  }

  AudioTimeStamp translated(const AudioTimeStamp& in) {
    AudioTimeStamp out;
    EXPECT_EQ(audio().AudioDeviceTranslateTime(mDevice, in, out), 0);
    return out;
  }
  static void count(void* heard, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement) {
    ++*static_cast<std::atomic<int>*>(heard);
  }

  const std::unique_ptr<Setting> mSetting = GetParam().make();
  AudioObjectID mDevice = 0;
};

// --- devices ---

TEST_P(AudioServiceContract, DevicesAreListedWithTheirPropertiesAndTheDefaultOnesFirst) {
  using List = std::vector<std::uint32_t>;
  const auto devices =
      propertyOf<List>(audio(), kAudioObjectSystemObject, {kAudioHardwarePropertyDevices});
  EXPECT_NE(std::find(devices.begin(), devices.end(), mDevice), devices.end());
  const auto first = propertyOf<AudioObjectID>(audio(), kAudioObjectSystemObject,
                                               {kAudioHardwarePropertyDefaultOutputDevice});
  EXPECT_TRUE(first == devices[0] || (devices.size() > 1 && first == devices[1]));
  EXPECT_EQ(deviceOfUID(audio(), "no such UID"), kAudioObjectUnknown);

  EXPECT_EQ(ofDevice<std::string>(kAudioDevicePropertyDeviceUID), mSetting->uid());
  EXPECT_FALSE(ofDevice<std::string>(kAudioObjectPropertyName).empty());
  std::string text;
  for (const auto scope : {kAudioObjectPropertyScopeInput, kAudioObjectPropertyScopeOutput}) {
    const auto streams = ofDevice<List>(kAudioDevicePropertyStreams, scope);
    const auto channels = ofDevice<List>(kAudioDevicePropertyStreamConfiguration, scope);
    EXPECT_EQ(streams.size(), channels.size());
    EXPECT_EQ(std::accumulate(channels.begin(), channels.end(), 0U), 2U);
    EXPECT_EQ(
        audio().AudioObjectGetPropertyData(streams.at(0), {kAudioDevicePropertyDeviceUID}, &text),
        kAudioHardwareUnknownPropertyError);
  }

  EXPECT_EQ(audio().AudioObjectGetPropertyData(mDevice, {kAudioHardwarePropertyDevices}, &text),
            kAudioHardwareUnknownPropertyError);
  EXPECT_EQ(audio().AudioObjectGetPropertyData(999999, {kAudioObjectPropertyName}, &text),
            kAudioHardwareBadObjectError);
  AudioTimeStamp stamp{.mHostTime = 1, .mFlags = kAudioTimeStampHostTimeValid};
  EXPECT_EQ(audio().AudioDeviceTranslateTime(999999, stamp, stamp), kAudioHardwareBadDeviceError);
}

// --- units ---

TEST_P(AudioServiceContract, AUnitTellsOfItsDeviceAndRefusesWhatItCannotBe) {
  AudioUnit unit = 0;
  ASSERT_EQ(audio().AudioComponentInstanceNew(kHALOutputComponent, &unit), 0);
  const auto setDevice = [&](AudioObjectID device) {
    return audio().AudioUnitSetProperty(unit, kAudioOutputUnitProperty_CurrentDevice,
                                        kAudioUnitScope_Global, 0, &device, sizeof device);
  };
  ASSERT_EQ(setDevice(mDevice), 0);
  EXPECT_EQ(property<double>(unit, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output), rate());
  using Number = std::uint32_t;
  EXPECT_EQ(property<Number>(unit, kAudioDevicePropertyLatency, kAudioUnitScope_Output),
            latency(kAudioObjectPropertyScopeOutput));
  EXPECT_EQ(property<Number>(unit, kAudioDevicePropertyLatency, kAudioUnitScope_Input),
            latency(kAudioObjectPropertyScopeInput));
  const auto enabled = kAudioOutputUnitProperty_EnableIO;
  EXPECT_EQ(property<Number>(unit, enabled, kAudioUnitScope_Output, 0), 1U);
  EXPECT_EQ(property<Number>(unit, enabled, kAudioUnitScope_Input, 1), 0U);
  const auto format = property<AudioStreamBasicDescription>(unit, kAudioUnitProperty_StreamFormat,
                                                            kAudioUnitScope_Input, 1);
  EXPECT_EQ(format.mChannelsPerFrame, 2U);
  EXPECT_EQ(format.mSampleRate, rate());
  // Where one byte is asked for, one is given, the lowest.
  EXPECT_EQ(property<std::uint8_t>(unit, kAudioOutputUnitProperty_IsRunning), 0);

  std::uint32_t size = 0;
  bool writable = false;
  EXPECT_EQ(audio().AudioUnitGetPropertyInfo(unit, kAudioOutputUnitProperty_ChannelMap,
                                             kAudioUnitScope_Output, 0, &size, &writable),
            0);
  EXPECT_EQ(size, 2 * sizeof(std::int32_t));
  EXPECT_TRUE(writable);
  EXPECT_EQ((property<std::array<std::int32_t, 2>>(unit, kAudioOutputUnitProperty_ChannelMap,
                                                   kAudioUnitScope_Output)),
            (std::array<std::int32_t, 2>{0, 1}));

  EXPECT_EQ(setDevice(999999), kAudioHardwareBadDeviceError);
  EXPECT_EQ(property<AudioObjectID>(unit, kAudioOutputUnitProperty_CurrentDevice), mDevice);
  EXPECT_EQ(audio().AudioOutputUnitStart(unit), kAudioUnitErr_Uninitialized);
  EXPECT_EQ(audio().AUParameterSet(unit, kLowPassParam_CutoffFrequency, kAudioUnitScope_Global, 0,
                                   1000, 0),
            kAudioUnitErr_InvalidParameter);
  auto interleaved = format;
  interleaved.mFormatFlags &= ~kAudioFormatFlagIsNonInterleaved;
  EXPECT_EQ(
      audio().AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 1,
                                   &interleaved, sizeof interleaved),
      kAudioUnitErr_FormatNotSupported);
  EXPECT_EQ(audio().AudioComponentInstanceDispose(unit), 0);
  EXPECT_EQ(audio().AudioOutputUnitStart(unit), kAudioHardwareBadObjectError);
}

TEST_P(AudioServiceContract, ListenersHearOfAnotherDeviceOnceAndAreQuietWhenRemoved) {
  AudioUnit unit = 0;
  ASSERT_EQ(audio().AudioComponentInstanceNew(kHALOutputComponent, &unit), 0);
  std::atomic<int> heard{0};
  const auto property = kAudioOutputUnitProperty_IsRunning;
  ASSERT_EQ(audio().AudioUnitAddPropertyListener(unit, property, &count, &heard), 0);
  ASSERT_EQ(audio().AudioUnitInitialize(unit), 0);
  ASSERT_EQ(audio().AudioOutputUnitStart(unit), 0);
  ASSERT_EQ(audio().AudioOutputUnitStart(unit), 0);  // it runs already
  EXPECT_TRUE(until([&heard] { return heard == 1; }));
  ASSERT_EQ(audio().AudioOutputUnitStop(unit), 0);
  EXPECT_TRUE(until([&heard] { return heard == 2; }));
  for (const OSStatus status : {0, kAudioUnitErr_PropertyNotInUse}) {
    EXPECT_EQ(audio().AudioUnitRemovePropertyListenerWithUserData(unit, property, &count, &heard),
              status);
  }
  ASSERT_EQ(audio().AudioOutputUnitStart(unit), 0);
  EXPECT_EQ(audio().AudioComponentInstanceDispose(unit), 0);
  EXPECT_EQ(heard, 2);
}

// --- the signal ---

TEST_P(AudioServiceContract, WhatAGraphPlaysComesInAfterAConstantDelayAndTimesRunOnWithoutAGap) {
  AudioRecorder recorder(audio(), mDevice);
  AudioPlayer player(audio(), mDevice);
  ASSERT_TRUE(awaitMore(player.cycles, 50));
  ASSERT_TRUE(awaitMore(recorder.cycles, 50));
  const auto firstCycle = recorder.log[0].time;
  const double latencyIn = latency(kAudioObjectPropertyScopeInput);
  const AudioTimeStamp there = translated({.mSampleTime = firstCycle.mSampleTime - latencyIn,
                                           .mFlags = kAudioTimeStampSampleTimeValid});
  const AudioTimeStamp back =
      translated({.mHostTime = there.mHostTime, .mFlags = kAudioTimeStampHostTimeValid});
  EXPECT_NEAR(back.mSampleTime, there.mSampleTime, 1e-3);
  recorder.stop();
  EXPECT_EQ(recorder.failure, 0);

  double due = firstCycle.mSampleTime;
  std::size_t at = 0;
  double delay = -1;
  std::size_t compared = 0;
  for (std::size_t i = 0; i < recorder.cycles; ++i) {
    const auto& [time, frames] = recorder.log[i];
    EXPECT_EQ(time.mFlags, kAudioTimeStampSampleHostTimeValid);
    ASSERT_EQ(time.mSampleTime, due) << "at cycle " << i;
    const AudioTimeStamp atCount = translated(
        {.mSampleTime = time.mSampleTime - latencyIn, .mFlags = kAudioTimeStampSampleTimeValid});
    EXPECT_NEAR(static_cast<double>(atCount.mHostTime) - static_cast<double>(time.mHostTime), 0,
                mSetting->tolerance());
    for (std::uint32_t frame = 0; frame < frames; ++frame, ++at) {
      EXPECT_EQ(recorder.left[at], -recorder.right[at]);
      if (recorder.left[at] == 0) {
        EXPECT_EQ(compared, 0U) << "silence amid the signal";
        continue;
      }
      const double found = delayOf(recorder.left[at], due + frame);
      if (compared++ == 0) {
        delay = found;
      }
      ASSERT_EQ(found, delay) << "at frame " << at;
    }
    due += frames;
  }
  EXPECT_GT(compared, 1000U);
  EXPECT_LT(delay, rate() / 2);
}

TEST_P(AudioServiceContract, TheChannelMapRoutesAndTakesHoldWhileItRuns) {
  AudioRecorder recorder(audio(), mDevice);
  AudioPlayer player(audio(), mDevice);
  const auto sign = [](float sample) { return sample > 0 ? 1 : sample < 0 ? -1 : 0; };
  struct Case {
    std::array<std::int32_t, 2> map;
    int left;
    int right;
  };
  std::vector<std::size_t> looks;
  // The first channel of the graph is positive, the second negative.
  const Case cases[] = {{{0, 1}, 1, -1}, {{1, 0}, -1, 1},  {{-1, 0}, 0, 1},
                        {{1, 2}, -1, 0}, {{-1, -1}, 0, 0}, {{0, 0}, 1, 1}};
  for (const Case& each : cases) {
    ASSERT_EQ(player.set(kAudioOutputUnitProperty_ChannelMap, each.map, kAudioUnitScope_Output), 0);
    ASSERT_TRUE(awaitQuarterSecond(recorder));
    looks.push_back(recorder.frames - 1);
  }
  recorder.stop();
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    EXPECT_EQ(sign(recorder.left[looks[i]]), cases[i].left) << i;
    EXPECT_EQ(sign(recorder.right[looks[i]]), cases[i].right) << i;
  }
}

TEST_P(AudioServiceContract, ACycleIsSilentWhenItsCallbackFails) {
  AudioRecorder recorder(audio(), mDevice);
  AudioPlayer player(audio(), mDevice, true, 0x5000);
  ASSERT_TRUE(awaitMore(player.cycles, 20));
  const std::size_t failing = recorder.frames;
  player.result = 0;
  ASSERT_TRUE(awaitQuarterSecond(recorder));
  const std::size_t sounding = recorder.frames;
  recorder.stop();
  EXPECT_GT(failing, 0U);
  EXPECT_TRUE(std::all_of(recorder.left.begin(),
                          recorder.left.begin() + static_cast<std::ptrdiff_t>(failing),
                          [](float sample) { return sample == 0; }));
  EXPECT_NE(recorder.left[sounding - 1], 0);
}

TEST_P(AudioServiceContract, WhatIsStoppedOrDisposedOfIsSilentAtOnce) {
  AudioRecorder recorder(audio(), mDevice);
  std::size_t stopped = 0;
  {
    AudioPlayer player(audio(), mDevice);
    ASSERT_TRUE(awaitMore(player.cycles, 10));
    ASSERT_EQ(audio().AUGraphStop(player.graph), 0);
    const std::uint32_t cycles = player.cycles;
    ASSERT_TRUE(awaitQuarterSecond(recorder));
    EXPECT_EQ(player.cycles, cycles);
    stopped = recorder.frames;
    ASSERT_TRUE(awaitMore(recorder.cycles, 5));
    ASSERT_EQ(audio().AUGraphStart(player.graph), 0);
    ASSERT_TRUE(awaitMore(player.cycles, 10));
  }
  // In the midst of its cycles, which are long; what they use has gone with it.
  for (int i = 0; i < 30; ++i) {
    AudioPlayer player(audio(), mDevice);
    player.work = 10'000'000;
    ASSERT_TRUE(awaitMore(player.cycles, static_cast<std::size_t>(1 + i % 3)));
    ASSERT_EQ(audio().AUGraphStop(player.graph), 0);
    EXPECT_FALSE(player.isPlaying);
  }
  ASSERT_TRUE(awaitQuarterSecond(recorder));
  const std::size_t last = recorder.frames - 1;
  recorder.stop();
  EXPECT_EQ(recorder.left[stopped], 0);
  EXPECT_EQ(recorder.left[last], 0);
}

TEST_P(AudioServiceContract, AUnitOutlivesTheLossOfItsDeviceAndPlaysAgainAtItsReturn) {
  AudioPlayer player(audio(), mDevice);
  AudioRecorder recorder(audio(), mDevice);
  ASSERT_TRUE(awaitMore(recorder.cycles, 20));
  std::atomic<int> heard{0};
  int listed = 0;
  const auto listListener = [](AudioObjectID, const AudioObjectPropertyAddress&, void* lists) {
    ++*static_cast<int*>(lists);
  };
  ASSERT_EQ(audio().AudioUnitAddPropertyListener(
                player.output, kAudioOutputUnitProperty_CurrentDevice, &count, &heard),
            0);
  ASSERT_EQ(audio().AudioObjectAddPropertyListener(
                kAudioObjectSystemObject, {kAudioHardwarePropertyDevices}, listListener, &listed),
            0);

  mSetting->loseDevice();
  ASSERT_TRUE(until([this, &heard, &listed] { return findDevice() == 0 && heard && listed; }));
  AudioTimeStamp stamp{.mHostTime = 1, .mFlags = kAudioTimeStampHostTimeValid};
  EXPECT_EQ(audio().AudioDeviceTranslateTime(mDevice, stamp, stamp), kAudioHardwareBadDeviceError);
  // A graph that is set up while it is away waits for it.
  AudioPlayer late(audio(), mDevice);
  EXPECT_EQ(property<double>(late.output, kAudioUnitProperty_SampleRate, kAudioUnitScope_Output),
            48000);

  heard = 0;
  listed = 0;
  mSetting->returnDevice();
  ASSERT_TRUE(until([&heard, &listed] { return heard && listed; }));
  EXPECT_EQ(findDevice(), mDevice);
  EXPECT_TRUE(awaitMore(late.cycles, 10));
  EXPECT_TRUE(awaitMore(player.cycles, 10));
  ASSERT_TRUE(awaitQuarterSecond(recorder));
  const std::size_t last = recorder.frames - 1;
  recorder.stop();
  EXPECT_NE(recorder.left[last], 0);
  EXPECT_EQ(audio().AudioObjectRemovePropertyListener(
                kAudioObjectSystemObject, {kAudioHardwarePropertyDevices}, listListener, &listed),
            0);
}

template <class Kind>
std::unique_ptr<Setting> make() {
  return std::make_unique<Kind>();
}

INSTANTIATE_TEST_SUITE_P(
    Services, AudioServiceContract,
    testing::Values(ServiceKind{"builtin_simulated", &make<BuiltinSetting<host::SimulatedHost>>},
                    ServiceKind{"builtin_system", &make<BuiltinSetting<host::SystemHost>>},
                    ServiceKind{"jack", &make<JackSetting<test::JackServer>>},
                    ServiceKind{"jack_pipewire", &make<JackSetting<test::PipeWireServer>>}),
    [](const auto& kind) { return std::string(kind.param.name); });

}  // namespace
}  // namespace velor::audio
