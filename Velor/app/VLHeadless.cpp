// SPDX-License-Identifier: MIT
#include "Velor/app/VLHeadless.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>

#include "Kv-Appkit/KVKeyValueObserver.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/app/VLMTCOutputs.h"
#include "Velor/app/VLPortNames.h"
#include "Velor/app/VLServices.h"
#include "Velor/app/VLStatusLine.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
// Quarter frames are scheduled up to 16 ahead: after a stop the last block runs out
// to its end before the ports close, so that receivers are not left with half of it.
constexpr std::uint64_t kRunOut = 300'000'000;
// What no event announces, such as the server's name, is looked at this often.
constexpr std::uint64_t kRefreshInterval = 500'000'000;

// The signals end the main loop, as a quit does. A second one of the same kind
// ends the process at once.
class StopSignals {
 public:
  explicit StopSignals(host::MainQueue& queue) {
    sQueue.store(&queue);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction action {};
      action.sa_handler = [](int) {
        if (host::MainQueue* target = sQueue.load()) {
          target->stop();
        }
      };
      action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
      sigaction(number, &action, nullptr);
    }
  }
  ~StopSignals() { sQueue.store(nullptr); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  inline static std::atomic<host::MainQueue*> sQueue{nullptr};
};

// Instances that the process shares end before the services on which they stand.
struct SharedInstancesEnd {
  SharedInstancesEnd() = default;
  ~SharedInstancesEnd() { KVSharedInstances::clear(); }
  SharedInstancesEnd(const SharedInstancesEnd&) = delete;
  SharedInstancesEnd& operator=(const SharedInstancesEnd&) = delete;
};

void setUp(VLClock& clock, const VLOptions& options) {
  clock.setSmpteFormat(options.format);
  if (options.offset) {
    clock.setSmpteOffset(*options.offset);
  }
  clock.setPlayRatePercent(options.ratePercent);
  clock.setPlaybackMode(options.playMode);
  if (options.stopAt) {
    clock.setStopTime(*options.stopAt);
  }
  if (options.loop) {
    clock.setLoopStartTime(options.loop->first);
    clock.setLoopEndTime(options.loop->second);
  }
  if (options.preroll) {
    clock.setPrerollTime(*options.preroll);
    clock.setPreroll(true);
  }
  if (options.start) {
    clock.setTime(*options.start);
  }
}

int list(KVMIDICore& core) {
  std::printf("MIDI: %s\nSources\n%sDestinations\n%s", midi::service().serverDescription().c_str(),
              VLEndpointList(core.sources()).c_str(), VLEndpointList(core.destinations()).c_str());
  return 0;
}

// Keeps the line in step with the clock, the destinations and the server.
class StatusDisplay {
 public:
  StatusDisplay(VLClock& clock, const VLMTCOutputs& outputs) : mClock(clock), mOutputs(outputs) {
    if (!mLine.isVisible()) {
      return;
    }
    mClock.setProceedBlock([this](const SMPTETime* time) { show(*time); });
    refresh();
  }
  ~StatusDisplay() { mClock.setProceedBlock(nullptr); }
  StatusDisplay(const StatusDisplay&) = delete;
  StatusDisplay& operator=(const StatusDisplay&) = delete;

 private:
  void show(const SMPTETime& time) {
    mLine.show({time, mClock.status(), mOutputs.outputs(), midi::service().serverDescription()});
  }
  void refresh() {
    show(mClock.time());
    host::current().mainQueue().after(kRefreshInterval, [this, alive = std::weak_ptr(mAlive)] {
      if (alive.lock() != nullptr) {
        refresh();
      }
    });
  }

  VLClock& mClock;
  const VLMTCOutputs& mOutputs;
  VLStatusLine mLine;
  const std::shared_ptr<int> mAlive = std::make_shared<int>();
};

}  // namespace

int VLRunHeadless(const VLOptions& options) {
  const VLMIDIServiceInForce service;
  const SharedInstancesEnd shared;
  KVMIDICore& core = KVMIDICore::sharedCore();
  if (options.list) {
    return list(core);
  }

  // All ports first: nothing starts when one of them is not there.
  KVMIDICore::Endpoints wanted;
  for (const std::string& name : options.mtcOut) {
    std::string error;
    auto endpoint = VLEndpointNamed(name, core.destinations(), "destination", error);
    if (endpoint == nullptr) {
      std::fprintf(stderr, "velor: --mtc-out: %s\n", error.c_str());
      return kUsageStatus;
    }
    wanted.push_back(std::move(endpoint));
  }

  host::MainQueue& mainQueue = host::current().mainQueue();
  const StopSignals signals(mainQueue);
  VLClock& clock = VLClock::sharedClock();
  setUp(clock, options);
  VLMTCOutputs outputs(core, clock);
  for (auto& endpoint : wanted) {
    outputs.enable(std::move(endpoint));
  }
  if (!midi::service().isConnected()) {
    std::fputs("velor: no MIDI server is running; MIDI stays in process until one appears\n",
               stderr);
  }
  {
    const StatusDisplay display(clock, outputs);
    if (options.play) {
      // Else the first block might find its way not open yet.
      midi::service().waitUntilSettled();
      clock.start();
    }
    mainQueue.run();
    if (clock.running()) {
      clock.stop();
      mainQueue.after(kRunOut, [&mainQueue] { mainQueue.stop(); });
      mainQueue.run();
    }
  }
  return 0;
}

}  // namespace velor
