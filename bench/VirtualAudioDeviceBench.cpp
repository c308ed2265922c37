// SPDX-License-Identifier: MIT
// What a virtual device costs on the simulated host, a unit playing to it and
// another recording: how long a simulated second takes, so what a day would.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "kva/KAHALDeviceOutputUnit.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"

namespace velor::audio {
namespace {

constexpr std::uint64_t kSimulatedSecond = 1'000'000'000;

OSStatus play(const host::RealtimeContext&, void*, const AudioTimeStamp&, std::uint32_t frames,
              std::span<float* const> channels) noexcept {
  for (float* const channel : channels) {
    std::fill_n(channel, frames, 0.5F);
  }
  return 0;
}

OSStatus record(const host::RealtimeContext&, void* frames, const AudioTimeStamp&,
                std::uint32_t count, std::span<float* const>) noexcept {
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
  AudioService audio(std::move(outsides));
  setService(&audio);

  std::uint64_t frames = 0;
  KAHALDeviceOutputUnit unit;
  unit.setInputRenderCallback(&play, nullptr, 0);
  unit.enableInput(true, true);
  unit.setPropertyGlobal(KAUnitProperty::inputCallback, AURenderCallbackStruct{&record, &frames});
  unit.initialize();
  unit.start();
  for (auto _ : state) {
    host.advance(kSimulatedSecond);
  }
  unit.stop();
  state.counters["frames/s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_SimulatedSecondOfALoop)->Arg(256)->Arg(1024)->Arg(4096)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace velor::audio

BENCHMARK_MAIN();
