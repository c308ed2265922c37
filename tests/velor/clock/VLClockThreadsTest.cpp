// SPDX-License-Identifier: MIT
// The clock on real threads: what is read without the queue, against all that
// writes it.
#include <atomic>
#include <thread>

#include "platform/host/SystemHost.h"
#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

TEST(VLClockThreads, ReadersOnOtherThreadsNeverSeeHalfAChange) {
  host::SystemHost host;
  midi::MIDIObjectTable table(nullptr);
  midi::setService(&table);
  {
    VLClock clock;
    auto delegate = std::make_shared<VLClockDelegate>();
    clock.setDelegate(delegate);
    std::atomic<bool> ending{false};
    std::atomic<int> halves{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
      readers.emplace_back([&] {
        while (!ending.load()) {
          for (const SMPTETime& t : {clock.startTimeSMPTE(), clock.stopTime(), clock.smpteOffset(),
                                     clock.loopStartTime(), clock.loopEndTime(), clock.time()}) {
            halves += isWhole(t) ? 0 : 1;
          }
          halves += ltc_is_valid_type(clock.smpteFormat()) ? 0 : 1;
          clock.running();
          clock.armed();
          clock.delegate();
          clock.proceedBlock();
          clock.playbackMode();
        }
      });
    }
    int proceeds = 0;
    KVMIDICore& core = KVMIDICore::sharedCore();
    const auto destination = std::make_shared<KVMIDIEndpoint>(core.createDestination(
        core.defaultClient(), "desk", [](const midi::MIDIPacketList*, void*, void*) {}, nullptr,
        77));
    for (int round = 0; round < 12; ++round) {
      const std::uint32_t format = round % 2 == 0 ? kSMPTETimeType30 : kSMPTETimeType24;
      clock.setProceedBlock([&proceeds](const SMPTETime*) { ++proceeds; });
      clock.setSmpteFormat(format);
      clock.setTime(at(0, 0, round, 20, format));
      clock.setStopTime(at(0, 0, round, 22, format));
      clock.setLoopEndTime(at(0, 0, round + 1, 0, format));
      clock.setLoopStartTime(at(0, 0, round, 0, format));
      clock.setSmpteOffset(at(0, 0, round, 1, format));
      clock.addMTCDestination(destination);
      clock.setPlayRate(50);
      clock.setPlaybackMode(kVLPlayModes[static_cast<std::size_t>(round) % 4].playMode);
      clock.start();
      clock.setTime(at(0, 0, round, 10, format));
      const std::uint64_t until = host.AudioGetCurrentHostTime() + 10'000'000;
      while (host.AudioGetCurrentHostTime() < until) {
        host.mainQueue().drainPending();
        std::this_thread::yield();
      }
      clock.stop();
      clock.removeMTCDestination(destination);
      clock.arm();
      clock.setDelegate(delegate);
      clock.disarm();
    }
    ending.store(true);
    for (std::thread& reader : readers) {
      reader.join();
    }
    EXPECT_EQ(halves.load(), 0);
    EXPECT_GT(proceeds, 0);
    destination->dispose();
  }
  KVSharedInstances::clear();
  midi::setService(nullptr);
}

}  // namespace
}  // namespace velor
