// SPDX-License-Identifier: MIT
// Threads of the system meeting in what several threads may use; for
// ThreadSanitizer above all.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVKeyValueObserver.h"
#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVWatchdog.h"
#include "Kv-Appkit/kv_hptimer.h"
#include "Kv-Appkit/kv_watchdog.h"
#include "platform/host/SystemHost.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr KVDependency kCycle[] = {{"running", "status"}, {"status", "running"}};

// Runs `body` on a thread while the main queue runs here, as long as it takes.
template <class Body>
void besideTheMainQueue(host::Host& host, Body body) {
  const auto thread = host.startThread("beside", [&] {
    body();
    host.mainQueue().stop();
  });
  host.mainQueue().run();
  thread->join();
}

TEST(RealThreads, WatchdogsDroppedWhileTheyFireActOnWholeObjectsOrNotAtAll) {
  constexpr int kRounds = 200;
  host::SystemHost host;
  host::Queue queue("watched");
  std::atomic<int> acted{0};
  besideTheMainQueue(host, [&] {
    for (int round = 0; round < kRounds; ++round) {
      auto object = KVWatchdog::initWithTimeinterval(
          0.0001,
          [&acted](KVWatchdog& self, const std::shared_ptr<void>& refCon) {
            self.validate();
            acted += *static_cast<int*>(refCon.get());
          },
          queue, std::make_shared<int>(1));
      kv_watchdog* plain = nullptr;
      kv_watchdog_create(
          &plain,
          [&acted](kv_watchdog* self, void*) {
            kv_watchdog_validate(self);
            ++acted;
          },
          &queue, nullptr, 0.0001);
      object->resumeAfter(0.0001);
      kv_watchdog_resume_after(plain, 0.0001);
      // Before, while and after the firing, as the rounds go.
      host.mach_wait_until(host.AudioGetCurrentHostTime() +
                           static_cast<std::uint64_t>(round) * 2000);
      object.reset();
      kv_watchdog_dispose(plain);
    }
    queue.sync([] {});
    const int atTheEnd = acted;
    host.mach_wait_until(host.AudioGetCurrentHostTime() + 5 * kMs);
    queue.sync([] {});
    EXPECT_EQ(acted, atTheEnd);
  });
  EXPECT_LE(acted, 2 * kRounds);
}

TEST(RealThreads, ATimerIsStartedStoppedAndSetByDifferentThreads) {
  constexpr int kRuns = 40;
  host::SystemHost host;
  host::Queue queue("stopper");
  std::atomic<int> calls{0};
  kv_hptimer_s* timer = nullptr;
  ASSERT_EQ(kv_hptimer_create(&timer, kMs), 0);
  kv_hptimer_set_block(timer, [&calls](const host::RealtimeContext&) { ++calls; });
  std::atomic<bool> ending{false};
  const auto setter = host.startThread("setter", [&] {
    for (std::uint64_t i = 0; !ending; ++i) {
      kv_hptimer_set_interval(timer, kMs / 2 + i % 2 * kMs / 4);
      host.mach_wait_until(host.AudioGetCurrentHostTime() + kMs / 8);
    }
  });
  for (int run = 0; run < kRuns; ++run) {
    const int before = calls;
    ASSERT_EQ(kv_hptimer_start(timer), 0);
    while (calls == before) {
      host.mach_wait_until(host.AudioGetCurrentHostTime() + kMs / 4);
    }
    // A stop here meets a stop over there: one of them joins.
    std::int32_t other = 1;
    queue.async([&] { other = kv_hptimer_stop(timer); });
    const std::int32_t mine = kv_hptimer_stop(timer);
    queue.sync([] {});
    EXPECT_EQ(mine + other, -50);
    const int after = calls;
    EXPECT_GT(after, before);
  }
  ending = true;
  setter->join();
  const int atTheEnd = calls;
  host.mach_wait_until(host.AudioGetCurrentHostTime() + 3 * kMs);
  EXPECT_EQ(calls, atTheEnd);
  EXPECT_EQ(kv_hptimer_start(timer), 0);
  EXPECT_EQ(kv_hptimer_dispose(timer), 0);
}

TEST(RealThreads, ObserversComeAndGoWhileOthersChange) {
  struct Observed : KVObservable {
    Observed() : KVObservable(kCycle) {}
  };
  struct Target {
    void runningChanged() { ++calls; }
    std::atomic<int> calls{0};
  };
  constexpr int kChanges = 20000;
  host::SystemHost host;
  Observed observed;
  const auto stays = std::make_shared<Target>();
  const std::vector<KVKeyPathOperation<Target>> keyPaths{{"running", &Target::runningChanged}};
  const auto observer =
      KVKeyValueObserver::observeKeyPaths(keyPaths, observed, std::weak_ptr<Target>(stays));
  {
    std::vector<std::unique_ptr<host::Thread>> threads;
    for (const char* key : {"running", "status"}) {
      threads.push_back(host.startThread("changes", [&observed, key] {
        for (int i = 0; i < kChanges; ++i) {
          observed.willChangeValueForKey(key);
          observed.didChangeValueForKey(key);
        }
      }));
    }
    threads.push_back(host.startThread("observes", [&] {
      for (int i = 0; i < kChanges / 20; ++i) {
        auto target = std::make_shared<Target>();
        const auto comes =
            KVKeyValueObserver::observeKeyPaths(keyPaths, observed, std::weak_ptr<Target>(target));
        target.reset();
      }
    }));
  }
  EXPECT_EQ(stays->calls, 2 * kChanges);
}

}  // namespace
}  // namespace velor
