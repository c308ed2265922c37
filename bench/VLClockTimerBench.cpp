// SPDX-License-Identifier: MIT
// How late the clock's timer wakes, beside a bare thread of the same class that
// does nothing but sleep until its next deadline. Prints a table of the errors
// (wake-up less deadline, us) and the ratios. A second table shows how late the
// blocks of freewheels go out, beside nothing and beside six busy threads. Takes the
// seconds of each row as an argument, and a file that gets the clock's errors.
#include <time.h>

#include <algorithm>
#include <array>
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
#include "Velor/mtc/VLMTC.h"
#include "bench/TickErrors.h"
#include "kvtimecode/ltc_utils.h"
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

void runClock(WatchedHost& host, std::uint64_t duration, TickErrors& errors) {
  VLClock clock;
  host.watch(&errors);
  clock.setPlayRate(kRate);
  clock.start();
  for (const std::uint64_t end = now() + duration; now() < end;) {
    sleepUntil(now() + 20'000'000);
    host.mainQueue().drainPending();
  }
  clock.stop();
  host.watch(nullptr);
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

void measure(WatchedHost& host, const char* load, std::uint64_t duration, const std::string& file) {
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
    if (!file.empty()) {
      clock.appendTo(file);
    }
  }
}

constexpr std::uint64_t kBlock = 80'000'000;  // ns, two frames at 25
constexpr std::uint64_t kLeeway = 500'000;    // ns, by which a freewheel waits longer
constexpr std::size_t kFreewheels = 8;

/// A freewheel and how late the first pieces of its blocks come.
struct Freewheel {
  VLMTC* sender = nullptr;
  std::uint64_t handedOver = 0;  // host time of its only time, ns
  TickErrors* errors = nullptr;

  static void read(const midi::MIDIPacketList* list, void* refCon, void*) {
    auto& self = *static_cast<Freewheel*>(refCon);
    const std::uint64_t due = self.handedOver + kBlock + kLeeway;
    midi::forEachPacket(*list, [&](const midi::MIDIPacket& packet) {
      const std::uint64_t time = now();
      if (packet.data[1] >> 4 == 0 && time > due) {
        self.errors->add((time - due) % kBlock);
      }
    });
  }
};

void measureFreewheel(host::Host& host, const char* load, std::uint64_t duration) {
  midi::MIDIObjectTable midi(nullptr);
  midi::setService(&midi);
  midi::MIDIClientRef client = 0;
  midi.MIDIClientCreate("bench", nullptr, nullptr, &client);
  TickErrors errors(kFreewheels * duration / kBlock);
  std::array<Freewheel, kFreewheels> freewheels;
  for (Freewheel& each : freewheels) {
    each.errors = &errors;
    VLMTCCreate(&each.sender);
    midi::MIDIEndpointRef source = 0;
    VLMTCCreateSource(&source, "freewheel", client);
    midi::MIDIPortRef port = 0;
    midi.MIDIInputPortCreate(client, "in", &Freewheel::read, &each, &port);
    midi.MIDIPortConnectSource(port, source, nullptr);
    VLMTCSetFreewheelTime(each.sender, -1);
    VLMTCSetSource(each.sender, source);
    sleepUntil(now() + kBlock / kFreewheels);
    const SMPTETime time = ltc_smptetime_from_frame_number(0, kSMPTETimeType25);
    const host::RealtimeContext realtime;
    each.handedOver = now();
    VLMTCSendTime(realtime, each.sender, &time, each.handedOver);
  }
  for (const std::uint64_t end = now() + duration; now() < end;) {
    host.mainQueue().drainPending();
    sleepUntil(now() + 20'000'000);
  }
  for (const Freewheel& each : freewheels) {
    VLMTCDispose(each.sender);
  }
  midi.MIDIClientDispose(client);
  midi::setService(nullptr);
  std::printf("%-22s %7zu %9.1f %9.1f %9.1f\n", load, errors.count(), errors.microseconds(0.5),
              errors.microseconds(0.99), errors.microseconds(1));
  std::fflush(stdout);
}

void measureFreewheels(host::Host& host, std::uint64_t duration) {
  std::printf("freewheel, late by us    count    median      99 %%      most\n");
  measureFreewheel(host, "idle", duration);
  std::atomic<bool> ending{false};
  std::vector<std::thread> busy;
  for (int i = 0; i < 6; ++i) {
    busy.emplace_back([&ending] {
      while (!ending.load(std::memory_order_relaxed)) {
      }
    });
  }
  measureFreewheel(host, "six busy threads", duration);
  ending.store(true);
  for (std::thread& each : busy) {
    each.join();
  }
}

int run(std::uint64_t duration, const std::string& file) {
  WatchedHost host;
  measureFreewheels(host, duration);
  midi::MIDIObjectTable midi(nullptr);
  midi::setService(&midi);
  std::printf("period %.0f ms; errors in us\n", static_cast<double>(kPeriod) / 1e6);
  std::printf("%-22s %7s %9s %9s %7s %9s %9s %8s %8s\n", "", "bare n", "median", "99 %", "clock n",
              "median", "99 %", "ratio", "ratio99");
  measure(host, "idle", duration, file);
  {
    std::atomic<bool> ending{false};
    std::thread busy([&ending] {
      while (!ending.load(std::memory_order_relaxed)) {
      }
    });
    measure(host, "one core busy", duration, file);
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
    std::fprintf(stderr, "usage: %s [SECONDS A ROW [FILE]]\n", argv[0]);
    return 2;
  }
  return velor::run(seconds * velor::kSecond, argc > 2 ? argv[2] : "");
}
