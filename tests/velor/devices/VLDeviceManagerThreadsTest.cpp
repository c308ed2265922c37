// SPDX-License-Identifier: MIT
// The manager on real threads: readers and switches, while destinations come and
// go.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "Velor/clock/VLClock.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {
namespace {

void countQuarterFrames(const midi::MIDIPacketList* packets, void* count, void* /*sourceRefCon*/) {
  midi::forEachPacket(*packets, [count](const midi::MIDIPacket& packet) {
    *static_cast<std::atomic<int>*>(count) += packet.data[0] == 0xF1 ? 1 : 0;
  });
}

TEST(VLDeviceManagerThreads, ListsSwitchesAndStateHoldWhileDestinationsComeAndGo) {
  host::SystemHost host;
  midi::MIDIObjectTable table(nullptr);
  midi::setService(&table);
  {
    auto& core = KVMIDICore::sharedCore();
    auto& manager = VLDeviceManager::sharedManager();
    std::atomic<int> received{0};
    const auto make = [&](const std::string& name, midi::MIDIUniqueID id) {
      return core.createDestination(core.defaultClient(), name, countQuarterFrames, &received, id);
    };
    const auto lasting = make("lasting", 77);
    host.mainQueue().drainPending();
    const auto device = manager.destinationWithEndpoint(std::make_shared<KVMIDIEndpoint>(lasting));
    ASSERT_NE(device, nullptr);

    std::atomic<bool> ending{false};
    std::atomic<int> rounds{0};
    std::vector<std::unique_ptr<host::Thread>> threads;
    threads.push_back(host.startThread("switch", [&] {
      while (!ending) {
        for (const auto& destination : manager.destinations()) {
          destination->setEnable(!destination->enable());
        }
        ++rounds;
      }
    }));
    threads.push_back(host.startThread("reader", [&] {
      while (!ending) {
        const auto destinations = manager.destinations();
        EXPECT_GE(destinations.size(), 1U);
        EXPECT_LE(destinations.size(), 2U);
        EXPECT_EQ(destinations[0], device);
        manager.devices();
        store::KeyedArchiver coder;
        manager.encodeState(coder);
        EXPECT_TRUE(store::KeyedUnarchiver::read(coder.data().value(), kDeviceClasses));
        ++rounds;
      }
    }));
    for (int i = 0; i < 8 || rounds < 20; ++i) {
      const auto passing = make("passing", VLDeviceManager::kMediaPlaybackUniqueID);
      host.mainQueue().drainPending();
      EXPECT_EQ(manager.destinations().size(), 2U);
      KVMIDIEndpoint(passing).dispose();
      host.mainQueue().drainPending();
      EXPECT_EQ(manager.destinations().size(), 1U);
    }
    ending = true;
    threads.clear();

    // What the switch says at last is what the clock does.
    VLClock& clock = VLClock::sharedClock();
    for (const bool enable : {false, true}) {
      device->setEnable(enable);
      received = 0;
      clock.start();
      const std::uint64_t deadline = host.AudioGetCurrentHostTime() + 5'000'000'000;
      const std::uint64_t least = host.AudioGetCurrentHostTime() + 120'000'000;  // 3 frames
      while (host.AudioGetCurrentHostTime() < (enable && received == 0 ? deadline : least)) {
        host.mainQueue().drainPending();
        host.mach_wait_until(host.AudioGetCurrentHostTime() + 5'000'000);
      }
      clock.stop();
      EXPECT_EQ(received > 0, enable);
    }
    KVMIDIEndpoint(lasting).dispose();
    host.mainQueue().drainPending();
  }
  KVSharedInstances::clear();
  midi::setService(nullptr);
}

}  // namespace
}  // namespace velor
