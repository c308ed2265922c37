// SPDX-License-Identifier: MIT
// What one operation on a time costs, over labels spread through a day.
#include "kvtimecode/ltc_utils.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>

namespace velor {
namespace {

constexpr std::size_t kTimes = 1024;  // a power of two; 24 KiB stays in the first cache

std::array<SMPTETime, kTimes> spreadTimes(std::uint32_t type) {
  std::array<SMPTETime, kTimes> times;
  for (std::size_t i = 0; i < kTimes; ++i) {
    times[i] = ltc_smptetime_from_frame_number(static_cast<std::int32_t>(i * 2017), type);
  }
  return times;
}

void normalize(benchmark::State& state) {
  auto times = spreadTimes(static_cast<std::uint32_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    SMPTETime& t = times[i++ % kTimes];
    benchmark::DoNotOptimize(ltc_normalize(t));
    benchmark::ClobberMemory();
  }
}

void frameNumberFromTime(benchmark::State& state) {
  const auto times = spreadTimes(static_cast<std::uint32_t>(state.range(0)));
  std::size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(ltc_frame_number_from_smptetime(times[i++ % kTimes]));
  }
}

void timeFromFrameNumber(benchmark::State& state) {
  const auto type = static_cast<std::uint32_t>(state.range(0));
  std::size_t i = 0;
  for (auto _ : state) {
    const auto number = static_cast<std::int32_t>(i++ % kTimes * 2017);
    benchmark::DoNotOptimize(ltc_smptetime_from_frame_number(number, type));
  }
}

void formatString(benchmark::State& state) {
  const auto times = spreadTimes(static_cast<std::uint32_t>(state.range(0)));
  std::array<char, kLTCStringSize> buffer;
  std::size_t i = 0;
  for (auto _ : state) {
    ltc_format_string(times[i++ % kTimes], buffer.data());
    benchmark::DoNotOptimize(buffer);
  }
}

// The same text by the C library, to compare with.
void formatStringBySnprintf(benchmark::State& state) {
  const auto times = spreadTimes(static_cast<std::uint32_t>(state.range(0)));
  std::array<char, 48> buffer;
  std::size_t i = 0;
  for (auto _ : state) {
    const SMPTETime& t = times[i++ % kTimes];
    std::snprintf(buffer.data(), buffer.size(), "%02u:%02u:%02u%c%02u",
                  static_cast<unsigned>(t.mHours), static_cast<unsigned>(t.mMinutes),
                  static_cast<unsigned>(t.mSeconds), ltc_is_drop(t) ? ';' : ':',
                  static_cast<unsigned>(t.mFrames));
    benchmark::DoNotOptimize(buffer);
  }
}

BENCHMARK(normalize)->ArgName("type")->Arg(kSMPTETimeType25)->Arg(kSMPTETimeType2997Drop);
BENCHMARK(frameNumberFromTime)->ArgName("type")->Arg(kSMPTETimeType25)->Arg(kSMPTETimeType2997Drop);
BENCHMARK(timeFromFrameNumber)->ArgName("type")->Arg(kSMPTETimeType25)->Arg(kSMPTETimeType2997Drop);
BENCHMARK(formatString)->ArgName("type")->Arg(kSMPTETimeType25);
BENCHMARK(formatStringBySnprintf)->ArgName("type")->Arg(kSMPTETimeType25);

}  // namespace
}  // namespace velor

BENCHMARK_MAIN();
