// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kvtimecode/generator/KVLTCGenerator.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/SystemHost.h"
#include "tests/support/AudioLoop.h"

namespace velor {
namespace {

// For so many ns.
void rest(std::uint64_t duration) {
  host::Host& host = host::current();
  host.mach_wait_until(host.AudioGetCurrentHostTime() + duration);
}

TEST(KVLTCGeneratorThreads, TimeComesInWhileTheGraphIsRebuiltAgainAndAgain) {
  const host::SystemHost host;
  auto second = audio::BuiltinAudio::loopback();
  second.uid = "second";
  second.period = 64;
  auto builtin =
      std::make_unique<audio::BuiltinAudio>(std::vector{audio::BuiltinAudio::loopback(), second});
  audio::VirtualAudioDevice& first = builtin->device(0);
  audio::VirtualAudioDevice& other = builtin->device(1);
  auto service = audio::serviceOver(std::move(builtin));
  auto generator = KVLTCGenerator::initWithAudioObjectID(first.id());
  host::MainQueue& mainQueue = host::current().mainQueue();

  std::atomic<bool> ending{false};
  std::atomic<int> calls{0};
  std::thread source([weak = std::weak_ptr(generator), &ending, &calls] {
    for (int frame = 0; !ending; frame = (frame + 2) % 1000) {
      SMPTETime time = ltc_smptetime_from_frame_number(frame, kSMPTETimeType25);
      time.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
      if (const auto strong = weak.lock()) {
        strong->copyTime(time, host::current().AudioGetCurrentHostTime());
        ++calls;
      }
      rest(1'000'000);
    }
  });
  int playing = 0;
  for (int i = 0; i < 60 || calls < 500; ++i) {
    generator->setAudioObjectId(i % 2 == 0 ? other.id() : first.id());
    first.setSampleRate(i % 3 == 0 ? 96000 : 48000);
    generator->setUserbits(static_cast<std::uint32_t>(i));
    rest(10'000'000);
    mainQueue.drainPending();
    playing += generator->isGenerating() && generator->audioObjectId() != 0 ? 1 : 0;
  }
  EXPECT_GT(playing, 30);
  // The last to let go may be the source.
  generator.reset();
  ending = true;
  source.join();
  mainQueue.drainPending();
  KVSharedInstances::clear();
  service.reset();
  audio::setService(nullptr);
}

}  // namespace
}  // namespace velor
