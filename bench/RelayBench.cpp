// SPDX-License-Identifier: MIT
// How soon a clock that follows MTC passes a block on: from the time at which the
// block's last piece is due to the end of the last MIDISend, with 16 destinations,
// idle and with one core busy. Blocks to measure over: the first argument, 500 if
// there is none.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"

namespace velor {
namespace {

constexpr int kDestinations = 16;
constexpr std::uint64_t kQuarterFrame = 10'000'000 / 4;  // ns; four times as fast as 25
constexpr std::uint64_t kMs = 1'000'000;

// The outside as 16 destinations that take packets and note the time.
class Destinations final : public midi::MIDIOutside {
 public:
  void start(midi::MIDIInside& inside) override {
    for (int i = 0; i < kDestinations; ++i) {
      const std::string name = "Desk:in" + std::to_string(i);
      inside.endpointAppeared(midi::MIDIEndpointKind::destination, name, name);
    }
  }
  midi::OSStatus send(Named, Named, const midi::MIDIPacketList&) override {
    lastSend.store(host::current().AudioGetCurrentHostTime());
    ++sends;
    return 0;
  }
  midi::OSStatus received(midi::MIDIEndpointRef, const midi::MIDIPacketList&) override { return 0; }
  void stop() override {}
  void addVirtualSource(midi::MIDIEndpointRef, const std::string&) override {}
  void addVirtualDestination(midi::MIDIEndpointRef, const std::string&,
                             midi::ReceiverRef) override {}
  void removeVirtual(midi::MIDIEndpointRef) override {}
  void connect(Named, Named, midi::ReceiverRef, void*) override {}
  void disconnect(midi::MIDIPortRef, midi::MIDIEndpointRef) override {}
  void endSending(midi::MIDIPortRef, midi::MIDIEndpointRef) override {}
  void removePort(midi::MIDIPortRef) override {}
  void waitUntilSettled() override {}
  void whenSettled(host::Queue& queue, host::Task task) override { queue.async(std::move(task)); }
  bool isConnected() override { return true; }
  std::string description() override { return "a benchmark"; }

  std::atomic<std::uint64_t> lastSend{0};
  std::atomic<int> sends{0};
};

// One block at 25 frames a second, its pieces from `first` on.
void sendBlock(midi::MIDIEndpointRef source, std::uint64_t first) {
  alignas(midi::MIDIPacketList) std::uint8_t room[256];
  auto* list = reinterpret_cast<midi::MIDIPacketList*>(room);
  midi::MIDIPacket* packet = midi::MIDIPacketListInit(list);
  for (std::uint8_t piece = 0; piece < 8; ++piece) {
    const std::uint8_t bytes[] = {0xF1,
                                  static_cast<std::uint8_t>(piece << 4 | (piece == 7 ? 2 : 0))};
    packet =
        midi::MIDIPacketListAdd(list, sizeof room, packet, first + piece * kQuarterFrame, 2, bytes);
  }
  midi::service().MIDIReceived(source, list);
}

void measure(const char* name, int blocks, Destinations& destinations, midi::MIDIEndpointRef source,
             const char* file = nullptr) {
  host::Host& host = host::current();
  std::vector<double> delays;
  for (int i = 0; i < blocks; ++i) {
    const std::uint64_t first = host.AudioGetCurrentHostTime() + 2 * kMs;
    const int before = destinations.sends.load();
    sendBlock(source, first);
    const std::uint64_t last = first + 7 * kQuarterFrame;
    host.mach_wait_until(last + 5 * kMs);
    host.mainQueue().drainPending();
    if (destinations.sends.load() - before == kDestinations) {
      delays.push_back(static_cast<double>(destinations.lastSend.load() - last) / 1000);
    }
  }
  if (file != nullptr) {
    std::ofstream stream(file, std::ios::app);
    for (const double delay : delays) {
      stream << delay << '\n';
    }
  }
  std::sort(delays.begin(), delays.end());
  if (delays.empty()) {
    std::printf("%-14s nothing was relayed\n", name);
    return;
  }
  std::printf("%-14s %zu of %d blocks relayed: median %.0f us, 99 %% %.0f us\n", name,
              delays.size(), blocks, delays[delays.size() / 2], delays[delays.size() * 99 / 100]);
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  using namespace velor;
  const int blocks = argc > 1 ? std::atoi(argv[1]) : 500;
  const char* const file = argc > 2 ? argv[2] : nullptr;
  host::SystemHost host;
  auto owned = std::make_unique<Destinations>();
  Destinations& destinations = *owned;
  midi::MIDIObjectTable table(std::move(owned));
  midi::setService(&table);
  {
    KVMIDICore& core = KVMIDICore::sharedCore();
    const midi::MIDIEndpointRef source = core.createSource(core.defaultClient(), "Sender", 0);
    VLClock& clock = VLClock::sharedClock();
    for (const auto& destination : core.destinations()) {
      clock.addMTCDestination(destination);
    }
    clock.setMIDISyncSource(std::make_shared<KVMIDIEndpoint>(source));
    clock.arm();
    measure("(warm-up)", 20, destinations, source);
    measure("idle", blocks, destinations, source, file);
    std::atomic<bool> stop{false};
    std::thread busy([&stop] {
      while (!stop.load(std::memory_order_relaxed)) {
      }
    });
    measure("one core busy", blocks, destinations, source, file);
    stop.store(true);
    busy.join();
  }
  KVSharedInstances::clear();
  midi::setService(nullptr);
  return 0;
}
