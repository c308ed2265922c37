// SPDX-License-Identifier: MIT
// What code may rely on, whichever back end the audio service has.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kva/KAHALAudioSystem.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/audio/jack/JackAudio.h"
#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/JackCable.h"
#include "tests/support/Kind.h"
#include "tests/support/Until.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

// A service, and a device of two channels in
// each direction whose outputs feed its inputs.
struct Setting {
  virtual ~Setting() = default;
  virtual AudioService& audio() = 0;
  virtual std::string uid() = 0;
  virtual void loseDevice() = 0;
  virtual void returnDevice() = 0;
  // ns by which a stamp's host time and the translation of its sample time may differ.
  virtual double tolerance() = 0;
  // Whether the server skips or repeats cycles when others hold it up for longer than one.
  virtual bool losesCycles() = 0;
  // ns for which a callback has to hold the device up to make an xrun; 0 where only hardware
  // reports xruns.
  virtual std::uint64_t stall() = 0;
};

template <class HostType>
struct BuiltinSetting final : Setting {
  BuiltinSetting() {
    auto builtin = std::make_unique<BuiltinAudio>();
    mBuiltin = builtin.get();
    mService = serviceOver(std::move(builtin));
  }
  AudioService& audio() override { return *mService; }
  std::string uid() override { return "velor.loopback"; }
  void loseDevice() override { mBuiltin->device().vanish(); }
  void returnDevice() override { mBuiltin->device().appear(); }
  double tolerance() override { return 1; }  // they are rounded to the nanosecond
  bool losesCycles() override { return false; }
  std::uint64_t stall() override { return 600 * kMs; }  // less is made up for

  HostType mHost;
  BuiltinAudio* mBuiltin = nullptr;
  std::unique_ptr<AudioService> mService;
};

// A cable that is a client of its own, as the device of a server.
template <class Server>
struct JackSetting final : Setting {
  JackSetting() {
    mServer.start();
    mHost = std::make_unique<host::SystemHost>();
    returnDevice();
    mService = serviceOver(std::make_unique<JackAudio>());
    // A new unit has the default device, which is the server's own.
    EXPECT_TRUE(
        test::until(5, [this] { return mService->defaultDevice(AudioDirection::output) != 0; }));
  }
  AudioService& audio() override { return *mService; }
  std::string uid() override { return "Cable"; }
  void loseDevice() override { mCable.reset(); }
  void returnDevice() override { mCable = std::make_unique<test::JackCable>("Cable", 2); }
  // A server smooths its time from cycle to cycle.
  double tolerance() override { return static_cast<double>(kMs); }
  // PipeWire's null sink goes by a timer, and never reports an xrun.
  static constexpr bool kHasTimer = std::is_same_v<Server, test::PipeWireServer>;
  bool losesCycles() override { return kHasTimer; }
  std::uint64_t stall() override { return kHasTimer ? 0 : 100 * kMs; }

  Server mServer;
  std::unique_ptr<host::SystemHost> mHost;
  std::unique_ptr<test::JackCable> mCable;
  std::unique_ptr<AudioService> mService;
};

using ServiceKind = test::Kind<Setting>;

class AudioServiceContract : public testing::TestWithParam<ServiceKind> {
 protected:
  AudioServiceContract() {
    EXPECT_TRUE(until([this] { return findDevice() != 0; }));
    mDevice = findDevice();
  }
  ~AudioServiceContract() override { KVSharedInstances::clear(); }

  AudioService& audio() { return mSetting->audio(); }
  static bool until(const std::function<bool()>& condition) { return test::until(5, condition); }
  AudioObjectID findDevice() { return audio().deviceForUID(mSetting->uid()); }
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
  // What comes in while the pattern is played. A recording in which the server lost cycles
  // says nothing of ours and is made again, at most four times.
  std::unique_ptr<AudioRecorder> recordPattern() {
    for (int run = 1;; ++run) {
      auto recorder = std::make_unique<AudioRecorder>(mDevice);
      const AudioPlayer player(mDevice);
      EXPECT_TRUE(awaitMore(player.cycles, 50) && awaitMore(recorder->cycles, 50));
      recorder->stop();
      const auto end = recorder->left.begin() + static_cast<std::ptrdiff_t>(recorder->frames);
      const auto begin = std::find_if(recorder->left.begin(), end, [](float s) { return s != 0; });
      bool isWhole = std::find(begin, end, 0.0F) == end;
      for (std::size_t i = 1; i < recorder->cycles; ++i) {
        const auto& [time, frames] = recorder->log[i - 1];
        isWhole = isWhole && recorder->log[i].time.mSampleTime == time.mSampleTime + frames;
      }
      if (isWhole || !mSetting->losesCycles() || run == 5) {
        return recorder;
      }
    }
  }
  AudioDeviceDescription description() { return audio().description(mDevice).value(); }
  double rate() { return description().sampleRate; }
  AudioTimeStamp translated(const AudioTimeStamp& in) {
    AudioTimeStamp out;
    EXPECT_EQ(audio().AudioDeviceTranslateTime(mDevice, in, out), 0);
    return out;
  }
  static void count(void* heard, KAUnitProperty) { ++*static_cast<std::atomic<int>*>(heard); }

  const std::unique_ptr<Setting> mSetting = GetParam().make();
  AudioObjectID mDevice = 0;
};

TEST_P(AudioServiceContract, WhatAGraphPlaysComesInAfterAConstantDelayAndTimesRunOnWithoutAGap) {
  const auto record = recordPattern();
  const AudioRecorder& recorder = *record;
  const auto firstCycle = recorder.log[0].time;
  const double latencyIn = description().input.latency;
  const AudioTimeStamp there = translated({.mSampleTime = firstCycle.mSampleTime - latencyIn,
                                           .mFlags = kAudioTimeStampSampleTimeValid});
  const AudioTimeStamp back =
      translated({.mHostTime = there.mHostTime, .mFlags = kAudioTimeStampHostTimeValid});
  EXPECT_NEAR(back.mSampleTime, there.mSampleTime, 1e-3);

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
  AudioRecorder recorder(mDevice);
  AudioPlayer player(mDevice);
  const auto sign = [](float sample) { return sample > 0 ? 1 : sample < 0 ? -1 : 0; };
  struct Case {
    AudioChannelMap map;
    int left;
    int right;
  };
  std::vector<std::size_t> looks;
  // The first channel of the graph is positive, the second negative.
  const Case cases[] = {{{0, 1}, 1, -1}, {{1, 0}, -1, 1},  {{-1, 0}, 0, 1},
                        {{1, 2}, -1, 0}, {{-1, -1}, 0, 0}, {{0, 0}, 1, 1}};
  for (const Case& each : cases) {
    player.output->setProperty(KAUnitProperty::channelMap, KAUnitScope::output, 0, each.map);
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
  AudioRecorder recorder(mDevice);
  AudioPlayer player(mDevice, true, 0x5000);
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
  AudioRecorder recorder(mDevice);
  std::size_t stopped = 0;
  {
    AudioPlayer player(mDevice);
    ASSERT_TRUE(awaitMore(player.cycles, 10));
    player.graph.stop();
    const std::uint32_t cycles = player.cycles;
    ASSERT_TRUE(awaitQuarterSecond(recorder));
    EXPECT_EQ(player.cycles, cycles);
    stopped = recorder.frames;
    ASSERT_TRUE(awaitMore(recorder.cycles, 5));
    player.graph.start();
    ASSERT_TRUE(awaitMore(player.cycles, 10));
  }
  // In the midst of its cycles, which are long; what they use has gone with it.
  for (int i = 0; i < 30; ++i) {
    AudioPlayer player(mDevice);
    player.work = 10'000'000;
    ASSERT_TRUE(awaitMore(player.cycles, static_cast<std::size_t>(1 + i % 3)));
    player.graph.stop();
    EXPECT_FALSE(player.isPlaying);
  }
  ASSERT_TRUE(awaitQuarterSecond(recorder));
  const std::size_t last = recorder.frames - 1;
  recorder.stop();
  EXPECT_EQ(recorder.left[stopped], 0);
  EXPECT_EQ(recorder.left[last], 0);
}

TEST_P(AudioServiceContract, AUnitOutlivesTheLossOfItsDeviceAndPlaysAgainAtItsReturn) {
  AudioPlayer player(mDevice);
  AudioRecorder recorder(mDevice);
  ASSERT_TRUE(awaitMore(recorder.cycles, 20));
  std::atomic<int> heard{0};
  std::atomic<int> heardAfterRemoval{0};
  struct Listed final : AudioDeviceListener {
    void deviceChanged(const AudioDeviceChange& change) override { count += change.presence; }
    std::atomic<int> count{0};
  } listed;
  player.output->addPropertyListener(KAUnitProperty::currentDevice, &count, &heardAfterRemoval);
  player.output->addPropertyListener(KAUnitProperty::currentDevice, &count, &heard);
  player.output->removePropertyListener(KAUnitProperty::currentDevice, &count, &heardAfterRemoval);
  audio().addListener(listed);

  mSetting->loseDevice();
  ASSERT_TRUE(
      until([this, &heard, &listed] { return findDevice() == 0 && heard && listed.count; }));
  AudioTimeStamp stamp{.mHostTime = 1, .mFlags = kAudioTimeStampHostTimeValid};
  EXPECT_EQ(audio().AudioDeviceTranslateTime(mDevice, stamp, stamp), kAudioHardwareBadDeviceError);
  // A graph that is set up while it is away waits for it.
  AudioPlayer late(mDevice);
  EXPECT_EQ(late.output->sampleRate(), 48000);

  heard = 0;
  listed.count = 0;
  mSetting->returnDevice();
  ASSERT_TRUE(until([&heard, &listed] { return heard && listed.count; }));
  EXPECT_EQ(heardAfterRemoval, 0);
  EXPECT_EQ(findDevice(), mDevice);
  EXPECT_TRUE(awaitMore(late.cycles, 10));
  EXPECT_TRUE(awaitMore(player.cycles, 10));
  ASSERT_TRUE(awaitQuarterSecond(recorder));
  const std::size_t last = recorder.frames - 1;
  recorder.stop();
  EXPECT_NE(recorder.left[last], 0);
  audio().removeListener(listed);
}

TEST_P(AudioServiceContract, TheServersRateAndPeriodCanBeReadAndALateCycleCountsAsAnXrun) {
  auto& system = KAHALAudioSystem::defaultSystem();
  int reports = 0;
  const auto observer = system.addObserver("serverStatus", [&](auto&&...) { ++reports; });
  AudioRecorder recorder(mDevice);
  ASSERT_TRUE(awaitMore(recorder.cycles, 20));
  const AudioServerStatus before = system.serverStatus();
  EXPECT_EQ(before.sampleRate, rate());
  EXPECT_EQ(before.period, description().bufferFrames);
  if (mSetting->stall() == 0) {
    return;
  }
  reports = 0;
  recorder.stall = mSetting->stall();
  EXPECT_TRUE(until([&] { return reports > 0 && system.serverStatus().xruns > before.xruns; }));
}

INSTANTIATE_TEST_SUITE_P(
    Services, AudioServiceContract,
    testing::Values(ServiceKind::of<BuiltinSetting<host::SimulatedHost>>("builtin_simulated"),
                    ServiceKind::of<BuiltinSetting<host::SystemHost>>("builtin_system"),
                    ServiceKind::of<JackSetting<test::JackServer>>("jack"),
                    ServiceKind::of<JackSetting<test::PipeWireServer>>("jack_pipewire")),
    test::kNameOfKind);

}  // namespace
}  // namespace velor::audio
