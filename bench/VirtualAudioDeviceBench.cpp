// SPDX-License-Identifier: MIT
// What a virtual device costs on the simulated host, a unit playing to it and
// another recording: how long a simulated second takes, so what a day would.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "platform/audio/builtin/AudioObjectTable.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kSimulatedSecond = 1'000'000'000;

OSStatus play(const host::RealtimeContext&, void*, AudioUnitRenderActionFlags&,
              const AudioTimeStamp&, std::uint32_t, std::uint32_t frames, AudioBufferList* data) {
  for (std::uint32_t i = 0; i < data->mNumberBuffers; ++i) {
    std::fill_n(data->mBuffers[i].mData, frames, 0.5F);
  }
  return 0;
}

OSStatus record(const host::RealtimeContext&, void* frames, AudioUnitRenderActionFlags&,
                const AudioTimeStamp&, std::uint32_t, std::uint32_t count, AudioBufferList*) {
  *static_cast<std::uint64_t*>(frames) += count;
  return 0;
}

void BM_SimulatedSecondOfALoop(benchmark::State& state) {
  host::SimulatedHost host;
  auto parameters = BuiltinAudio::loopback();
  parameters.period = static_cast<std::uint32_t>(state.range(0));
  parameters.maxPeriod = parameters.period;
  std::vector<std::unique_ptr<AudioOutside>> outsides;
  outsides.push_back(std::make_unique<BuiltinAudio>(std::vector{parameters}));
  AudioObjectTable audio(std::move(outsides));

  std::uint64_t frames = 0;
  const AURenderCallbackStruct player{&play, nullptr};
  const AURenderCallbackStruct recorder{&record, &frames};
  const std::uint32_t on = 1;
  AudioUnit unit = 0;
  audio.AudioComponentInstanceNew(kHALOutputComponent, &unit);
  audio.AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &player, sizeof player);
  audio.AudioUnitSetProperty(unit, kAudioOutputUnitProperty_EnableIO, kAudioUnitScope_Input, 1, &on,
                             sizeof on);
  audio.AudioUnitSetProperty(unit, kAudioOutputUnitProperty_SetInputCallback,
                             kAudioUnitScope_Global, 0, &recorder, sizeof recorder);
  audio.AudioUnitInitialize(unit);
  audio.AudioOutputUnitStart(unit);
  for (auto _ : state) {
    host.advance(kSimulatedSecond);
  }
  audio.AudioOutputUnitStop(unit);
  state.counters["frames/s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SimulatedSecondOfALoop)->Arg(256)->Arg(1024)->Arg(4096)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace velor::audio

BENCHMARK_MAIN();
