// SPDX-License-Identifier: MIT
// How late the clock's timer wakes, beside a bare thread of the same class that
// does nothing but sleep until its next deadline. Prints a table of the errors
// (wake-up less deadline, us) and the ratios; takes the seconds of each of its
// rows as an argument.
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/clock/VLClock.h"
#include "bench/TickErrors.h"
#include "platform/midi/MIDIService.h"
#include "platform/midi/builtin/MIDIObjectTable.h"

namespace velor {
namespace {

constexpr std::uint64_t kPeriod = 10'000'000;  // ns
constexpr double kRate = 4;                    // of a clock at 25: a tick a period

void sleepUntil(std::uint64_t deadline) {
  timespec t{};
  t.tv_sec = static_cast<time_t>(deadline / kSecond);
  t.tv_nsec = static_cast<long>(deadline % kSecond);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &t, nullptr) != 0) {
  }
}

void runBare(host::Host& host, std::uint64_t duration, TickErrors& errors) {
  const auto thread = host.startThread("bare", [&] {
    host.thread_policy_set({}, host::ThreadRole::timer);
    std::uint64_t next = now();
    for (const std::uint64_t end = next + duration; next < end;) {
      next += kPeriod;
      sleepUntil(next);
      errors.add(now() - next);
    }
  });
  thread->join();
}

void runClock(host::Host& host, std::uint64_t duration, TickErrors& errors) {
  VLClockTimeSources sources = VLClockTimeSources::system();
  bool isFirst = true;  // of the two reads in a tick
  sources.hostTime = [&host, &errors, &isFirst] {
    const std::uint64_t time = host.AudioGetCurrentHostTime();
    if (isFirst) {
      errors.add(time - lastDeadline);
    }
    isFirst = !isFirst;
    return time;
  };
  VLClock clock(std::move(sources));
  clock.setPlayRate(kRate);
  clock.start();
  for (const std::uint64_t end = now() + duration; now() < end;) {
    sleepUntil(now() + 20'000'000);
    host.mainQueue().drainPending();
  }
  clock.stop();
}

void printRow(const char* name, TickErrors& bare, TickErrors& clock) {
  const double bareMedian = bare.microseconds(0.5);
  const double bareLate = bare.microseconds(0.99);
  const double clockMedian = clock.microseconds(0.5);
  const double clockLate = clock.microseconds(0.99);
  std::printf("%-22s %7zu %9.1f %9.1f %7zu %9.1f %9.1f %8.2f %8.2f\n", name, bare.count(),
              bareMedian, bareLate, clock.count(), clockMedian, clockLate, clockMedian / bareMedian,
              clockLate / bareLate);
  std::fflush(stdout);
}

void measure(host::Host& host, const char* load, std::uint64_t duration) {
  const std::size_t count = duration / kPeriod + 10;
  {
    TickErrors bare(count);
    TickErrors clock(count);
    std::thread other([&] { runBare(host, duration, bare); });
    runClock(host, duration, clock);
    other.join();
    printRow((std::string("together, ") + load).c_str(), bare, clock);
  }
  {
    TickErrors bare(count);
    TickErrors clock(count);
    // In turns, so that what else the machine does falls on both.
    constexpr int kTurns = 10;
    for (int turn = 0; turn < kTurns; ++turn) {
      runBare(host, duration / kTurns, bare);
      runClock(host, duration / kTurns, clock);
    }
    printRow((std::string("in turns, ") + load).c_str(), bare, clock);
  }
}

int run(std::uint64_t duration) {
  WatchedHost host;
  midi::MIDIObjectTable midi(nullptr);
  midi::setService(&midi);
  std::printf("period %.0f ms; errors in us\n", static_cast<double>(kPeriod) / 1e6);
  std::printf("%-22s %7s %9s %9s %7s %9s %9s %8s %8s\n", "", "bare n", "median", "99 %", "clock n",
              "median", "99 %", "ratio", "ratio99");
  measure(host, "idle", duration);
  {
    std::atomic<bool> ending{false};
    std::thread busy([&ending] {
      while (!ending.load(std::memory_order_relaxed)) {
      }
    });
    measure(host, "one core busy", duration);
    ending.store(true);
    busy.join();
  }
  KVSharedInstances::clear();
  midi::setService(nullptr);
  return 0;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  const std::uint64_t seconds = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 20;
  if (seconds == 0) {
    std::fprintf(stderr, "usage: %s [SECONDS A ROW]\n", argv[0]);
    return 2;
  }
  return velor::run(seconds * velor::kSecond);
}
