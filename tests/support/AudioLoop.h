// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "kva/KAAUGraph.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Host.h"

namespace velor::audio {

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

// A service over one back end, the current one from now on.
inline std::unique_ptr<AudioService> serviceOver(std::unique_ptr<AudioOutside> outside) {
  std::vector<std::unique_ptr<AudioOutside>> outsides;
  outsides.push_back(std::move(outside));
  auto service = std::make_unique<AudioService>(std::move(outsides));
  setService(service.get());
  return service;
}

// A graph that plays the pattern, or what is told.
class AudioPlayer {
 public:
  /// `firstResult`: what its callback gives from the first cycle on.
  explicit AudioPlayer(AudioObjectID device, bool filtered = false, OSStatus firstResult = 0)
      : result(firstResult) {
    const KANode outputNode = graph.addNode(KAHALDeviceOutputUnit::componentDescription());
    const KANode sourceNode = graph.addNode(KAComponent::converter);
    const KANode filterNode = graph.addNode(KAComponent::lowPass);
    graph.open();
    output = std::static_pointer_cast<KAHALDeviceOutputUnit>(graph.nodeInfo(outputNode));
    output->setDeviceID(device);
    output->setPropertyGlobal(KAUnitProperty::startTimestampsAtZero, 0U);
    graph.nodeInfo(sourceNode)->setInputRenderCallback(&AudioPlayer::play, this, 0);
    graph.connectNode(sourceNode, 0, filtered ? filterNode : outputNode, 0);
    if (filtered) {
      graph.connectNode(filterNode, 0, outputNode, 0);
    }
    graph.initialize();
    graph.start();
  }

  KAAUGraph graph;
  std::shared_ptr<KAHALDeviceOutputUnit> output;
  std::atomic<std::uint32_t> cycles{0};
  std::atomic<std::uint32_t> work{0};  // turns of a loop at the end of each cycle
  std::atomic<bool> isPlaying{false};  // within the callback
  std::atomic<OSStatus> result;        // of the callback

 private:
  static OSStatus play(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                       std::uint32_t frames, std::span<float* const> channels) noexcept {
    auto& player = *static_cast<AudioPlayer*>(self);
    for (std::uint32_t i = 0; i < frames; ++i) {
      const float sample = patternAt(time.mSampleTime + i);
      channels[0][i] = sample;
      channels[1][i] = -sample;
    }
    player.isPlaying = true;
    ++player.cycles;
    for (std::uint32_t i = player.work; i > 0; --i) {
      std::atomic_signal_fence(std::memory_order_seq_cst);  // keeps the loop
    }
    player.isPlaying = false;
    return player.result.load();
  }
};

// A unit that keeps what comes in on two channels from `first` on. Look at it when it has
// stopped, or on the simulated host.
class AudioRecorder {
 public:
  struct Cycle {
    AudioTimeStamp time;
    std::uint32_t frames;
  };
  static constexpr std::size_t kRoom = 1 << 20;

  explicit AudioRecorder(AudioObjectID device, std::size_t first = 0)
      : left(kRoom), right(kRoom), log(kRoom / 16), mFirst(first) {
    unit.enableInput(true, false);
    unit.setDeviceID(device);
    unit.setPropertyGlobal(KAUnitProperty::startTimestampsAtZero, 0U);
    unit.setPropertyGlobal(KAUnitProperty::inputCallback,
                           AURenderCallbackStruct{&AudioRecorder::take, this});
    unit.initialize();
    unit.start();
  }
  ~AudioRecorder() { unit.stop(); }
  void stop() { unit.stop(); }

  // The sample time of the first sample since the last call and what came in on the left,
  // with silence for what the device skipped. For the simulated host.
  std::pair<double, std::vector<float>> drain() {
    const double begin = log[0].time.mSampleTime;
    std::vector<float> samples;
    auto from = left.begin();
    for (std::size_t i = 0; i < cycles; from += log[i++].frames) {
      samples.resize(static_cast<std::size_t>(log[i].time.mSampleTime - begin));
      samples.insert(samples.end(), from, from + log[i].frames);
    }
    frames = cycles = 0;
    return {begin, samples};
  }

  KAHALDeviceOutputUnit unit;
  std::vector<float> left;
  std::vector<float> right;
  std::vector<Cycle> log;
  std::atomic<std::size_t> cycles{0};
  std::atomic<std::size_t> frames{0};
  std::atomic<std::uint64_t> stall{0};  // ns for which the next cycle waits

 private:
  static OSStatus take(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                       std::uint32_t count, std::span<float* const> channels) noexcept {
    auto& recorder = *static_cast<AudioRecorder*>(self);
    if (const std::uint64_t wait = recorder.stall.exchange(0); wait != 0) {
      host::Host& host = host::current();
      host.mach_wait_until(host.AudioGetCurrentHostTime() + wait);
    }
    const std::size_t at = recorder.frames;
    if (at + count > kRoom || recorder.cycles == recorder.log.size()) {
      return -1;
    }
    std::copy_n(channels[recorder.mFirst], count, &recorder.left[at]);
    std::copy_n(channels[recorder.mFirst + 1], count, &recorder.right[at]);
    recorder.log[recorder.cycles] = {time, count};
    recorder.frames = at + count;
    ++recorder.cycles;
    return 0;
  }

  const std::size_t mFirst;
};

}  // namespace velor::audio
