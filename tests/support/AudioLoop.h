// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/audio/AudioService.h"

namespace velor::audio {

// A property of an object, which is to have it.
template <class T>
T propertyOf(AudioService& audio, AudioObjectID object, const AudioObjectPropertyAddress& address) {
  T value{};
  EXPECT_EQ(audio.AudioObjectGetPropertyData(object, address, &value), 0);
  return value;
}
// 0 where there is no such device.
inline AudioObjectID deviceOfUID(AudioService& audio, const std::string& uid) {
  std::uint32_t device = 0;
  EXPECT_EQ(audio.AudioObjectGetPropertyData(kAudioObjectSystemObject,
                                             {kAudioHardwarePropertyDeviceForUID}, &device, uid),
            0);
  return device;
}
// A property of a unit, which is to have it in this size.
template <class T>
T propertyOfUnit(AudioService& audio, AudioUnit unit, AudioUnitPropertyID id,
                 AudioUnitScope scope = kAudioUnitScope_Global, AudioUnitElement element = 0) {
  T value{};
  std::uint32_t size = sizeof value;
  EXPECT_EQ(audio.AudioUnitGetProperty(unit, id, scope, element, &value, &size), 0);
  EXPECT_EQ(size, sizeof value);
  return value;
}

// What is played: on the first channel a number for each sample of the device's
// count, on the second its negative, so that what comes in tells where it was played.
inline constexpr double kPatternLength = 65521;
inline constexpr float kPatternUnit = 65536;

inline float patternAt(double sample) {
  return static_cast<float>(std::fmod(sample, kPatternLength) + 1) / kPatternUnit;
}
// How far behind `sample` the pattern was played that is heard there.
inline double delayOf(float heard, double sample) {
  const double played = static_cast<double>(std::fabs(heard) * kPatternUnit) - 1;
  return std::fmod(std::fmod(sample, kPatternLength) - played + kPatternLength, kPatternLength);
}

// A graph that plays the pattern, or what is told.
class AudioPlayer {
 public:
  /// `firstResult`: what its callback gives from the first cycle on.
  AudioPlayer(AudioService& audio, AudioObjectID device, bool filtered = false,
              OSStatus firstResult = 0)
      : result(firstResult), mAudio(audio) {
    AUNode outputNode = 0;
    AUNode sourceNode = 0;
    AUNode filterNode = 0;
    EXPECT_EQ(audio.NewAUGraph(&graph), 0);
    EXPECT_EQ(audio.AUGraphAddNode(graph, kHALOutputComponent, &outputNode), 0);
    EXPECT_EQ(audio.AUGraphAddNode(graph, kConverterComponent, &sourceNode), 0);
    EXPECT_EQ(audio.AUGraphAddNode(graph, kLowPassComponent, &filterNode), 0);
    EXPECT_EQ(audio.AUGraphOpen(graph), 0);
    EXPECT_EQ(audio.AUGraphNodeInfo(graph, outputNode, &output), 0);
    EXPECT_EQ(audio.AUGraphNodeInfo(graph, sourceNode, &source), 0);
    EXPECT_EQ(set(kAudioOutputUnitProperty_CurrentDevice, device), 0);
    EXPECT_EQ(set(kAudioOutputUnitProperty_StartTimestampsAtZero, std::uint32_t{0}), 0);
    const AURenderCallbackStruct callback{&AudioPlayer::play, this};
    EXPECT_EQ(audio.AudioUnitSetProperty(source, kAudioUnitProperty_SetRenderCallback,
                                         kAudioUnitScope_Input, 0, &callback, sizeof callback),
              0);
    if (filtered) {
      EXPECT_EQ(audio.AUGraphConnectNodeInput(graph, sourceNode, 0, filterNode, 0), 0);
      EXPECT_EQ(audio.AUGraphConnectNodeInput(graph, filterNode, 0, outputNode, 0), 0);
    } else {
      EXPECT_EQ(audio.AUGraphConnectNodeInput(graph, sourceNode, 0, outputNode, 0), 0);
    }
    EXPECT_EQ(audio.AUGraphInitialize(graph), 0);
    EXPECT_EQ(audio.AUGraphStart(graph), 0);
  }
  ~AudioPlayer() { EXPECT_EQ(mAudio.DisposeAUGraph(graph), 0); }

  template <class T>
  OSStatus set(AudioUnitPropertyID property, const T& value,
               AudioUnitScope scope = kAudioUnitScope_Global) {
    return mAudio.AudioUnitSetProperty(output, property, scope, 0, &value, sizeof value);
  }

  AUGraph graph = 0;
  AudioUnit output = 0;
  AudioUnit source = 0;
  std::atomic<std::uint32_t> cycles{0};
  std::atomic<std::uint32_t> work{0};     // turns of a loop at the end of each cycle
  std::atomic<bool> isPlaying{false};     // within the callback
  std::atomic<std::uint32_t> longest{0};  // frames of a cycle
  std::atomic<OSStatus> result;           // of the callback

 private:
  static OSStatus play(const host::RealtimeContext&, void* self, AudioUnitRenderActionFlags&,
                       const AudioTimeStamp& time, std::uint32_t, std::uint32_t frames,
                       AudioBufferList* data) {
    auto& player = *static_cast<AudioPlayer*>(self);
    for (std::uint32_t i = 0; i < frames; ++i) {
      const float sample = patternAt(time.mSampleTime + i);
      data->mBuffers[0].mData[i] = sample;
      data->mBuffers[1].mData[i] = -sample;
    }
    player.isPlaying = true;
    player.longest = std::max(player.longest.load(), frames);
    ++player.cycles;
    for (std::uint32_t i = player.work; i > 0; --i) {
      std::atomic_signal_fence(std::memory_order_seq_cst);  // keeps the loop
    }
    player.isPlaying = false;
    return player.result.load();
  }

  AudioService& mAudio;
};

// A unit that keeps what comes in. Look at it when it has stopped.
class AudioRecorder {
 public:
  struct Cycle {
    AudioTimeStamp time;
    std::uint32_t frames;
  };
  static constexpr std::size_t kRoom = 1 << 20;

  AudioRecorder(AudioService& audio, AudioObjectID device)
      : left(kRoom), right(kRoom), log(kRoom / 16), mAudio(audio) {
    EXPECT_EQ(audio.AudioComponentInstanceNew(kHALOutputComponent, &unit), 0);
    const std::uint32_t on = 1;
    const std::uint32_t off = 0;
    const AURenderCallbackStruct callback{&AudioRecorder::take, this};
    const auto set = [&](AudioUnitPropertyID property, AudioUnitScope scope,
                         AudioUnitElement element, const void* data, std::uint32_t size) {
      EXPECT_EQ(audio.AudioUnitSetProperty(unit, property, scope, element, data, size), 0);
    };
    set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, &on, sizeof on);
    set(kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Output, 0, &off, sizeof off);
    set(kAudioOutputUnitProperty_CurrentDevice, kAudioUnitScope_Global, 0, &device, sizeof device);
    set(kAudioOutputUnitProperty_StartTimestampsAtZero, kAudioUnitScope_Global, 0, &off,
        sizeof off);
    set(kAudioOutputUnitProperty_SetInputCallback, kAudioUnitScope_Global, 0, &callback,
        sizeof callback);
    EXPECT_EQ(audio.AudioUnitInitialize(unit), 0);
    EXPECT_EQ(audio.AudioOutputUnitStart(unit), 0);
  }
  ~AudioRecorder() { EXPECT_EQ(mAudio.AudioComponentInstanceDispose(unit), 0); }
  void stop() { EXPECT_EQ(mAudio.AudioOutputUnitStop(unit), 0); }

  AudioUnit unit = 0;
  std::vector<float> left;
  std::vector<float> right;
  std::vector<Cycle> log;
  std::atomic<std::size_t> cycles{0};
  std::atomic<std::size_t> frames{0};
  std::atomic<OSStatus> failure{0};

 private:
  static OSStatus take(const host::RealtimeContext& realtime, void* self,
                       AudioUnitRenderActionFlags& flags, const AudioTimeStamp& time,
                       std::uint32_t bus, std::uint32_t count, AudioBufferList* data) {
    auto& recorder = *static_cast<AudioRecorder*>(self);
    const std::size_t at = recorder.frames;
    if (data != nullptr || at + count > kRoom || recorder.cycles == recorder.log.size()) {
      return -1;
    }
    AudioBufferList buffers;
    buffers.mNumberBuffers = 2;
    const auto bytes = static_cast<std::uint32_t>(count * sizeof(float));
    buffers.mBuffers[0] = {1, bytes, &recorder.left[at]};
    buffers.mBuffers[1] = {1, 0, nullptr};  // the unit gives its own
    const OSStatus status =
        recorder.mAudio.AudioUnitRender(realtime, recorder.unit, flags, time, bus, count, &buffers);
    if (status != 0 || buffers.mBuffers[1].mDataByteSize != bytes) {
      recorder.failure = status != 0 ? status : -1;
      return status;
    }
    std::copy_n(buffers.mBuffers[1].mData, count, &recorder.right[at]);
    recorder.log[recorder.cycles] = {time, count};
    recorder.frames = at + count;
    ++recorder.cycles;
    return 0;
  }

  AudioService& mAudio;
};

}  // namespace velor::audio
