// SPDX-License-Identifier: MIT
// A reader on real threads, whose device is changed under it again and again.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"

namespace velor {
namespace {

// For so many ns.
void rest(std::uint64_t duration) {
  host::Host& host = host::current();
  host.mach_wait_until(host.AudioGetCurrentHostTime() + duration);
}

TEST(VLLTCReaderDeviceThreads, WhatIsReadIsNeverHalfAChangeWhileDevicesComeAndGo) {
  const host::SystemHost host;
  auto midi = std::make_unique<midi::MIDIObjectTable>(nullptr);
  midi::setService(midi.get());
  auto builtin = std::make_unique<audio::BuiltinAudio>();
  audio::VirtualAudioDevice& loopback = builtin->device();
  std::vector<std::unique_ptr<audio::AudioOutside>> outsides;
  outsides.push_back(std::move(builtin));
  auto service = std::make_unique<audio::AudioService>(std::move(outsides));
  audio::setService(service.get());
  host::MainQueue& mainQueue = host::current().mainQueue();
  {
    VLDeviceManager& manager = VLDeviceManager::sharedManager();
    VLClock& clock = VLClock::sharedClock();
    const auto generator = manager.createGenerator();
    auto reader = manager.createrReader();
    clock.addMTCDestination(generator->midiEndpoint());
    clock.start();
    std::atomic<bool> ending{false};
    std::thread looker([&reader = *reader, &ending] {
      while (!ending) {
        const double speed = reader.getLatestSpeed();
        EXPECT_TRUE(speed == 0 || (speed > 23 && speed < 31)) << speed;
        const std::uint32_t bits = reader.userbits();
        EXPECT_EQ(bits & 0xFFFFU, bits >> 16U);
        SMPTETime time;
        reader.getLatestTime(time);
        rest(200'000);
      }
    });
    int reading = 0;
    std::uint32_t bits = 0;
    for (int i = 0; i < 150; ++i) {
      bits = static_cast<std::uint32_t>(i) * 0x10001U;
      generator->generator()->setUserbits(bits);
      if (i % 60 == 15) {
        loopback.setSampleRate(i % 120 == 15 ? 96000 : 48000);
      } else if (i % 60 == 30) {
        loopback.vanish();
      } else if (i % 60 == 35) {
        loopback.appear();
      }
      rest(10'000'000);
      mainQueue.drainPending();
      reading += reader->running() ? 1 : 0;
    }
    EXPECT_GT(reading, 50);
    // It goes while it reads.
    ending = true;
    looker.join();
    reader.reset();
    manager.removeDevicesAtIndexes({1});
    clock.stop();
    mainQueue.drainPending();
  }
  KVSharedInstances::clear();
  // Parsers of MTC stay until the ends of their streams are told.
  for (int i = 0; i < 60; ++i) {
    rest(10'000'000);
    mainQueue.drainPending();
  }
  service.reset();
  audio::setService(nullptr);
  midi::setService(nullptr);
}

}  // namespace
}  // namespace velor
