// SPDX-License-Identifier: MIT
// What code may rely on, whichever host is in force.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/host/Host.h"
#include "platform/host/RecursiveMutex.h"
#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "tests/support/Kind.h"

namespace velor::host {
namespace {

constexpr std::uint64_t kMs = 1'000'000;

using HostKind = test::Kind<Host>;

class HostContract : public testing::TestWithParam<HostKind> {
 protected:
  std::uint64_t now() const { return mHost->AudioGetCurrentHostTime(); }

  const std::unique_ptr<Host> mHost = GetParam().make();
};

TEST_P(HostContract, SleepsAndWaitsNeverEndEarlyAndASemaphoreCounts) {
  const std::uint64_t start = now();
  mHost->mach_wait_until(start + 3 * kMs);
  EXPECT_GE(now(), start + 3 * kMs);
  mHost->mach_wait_until(start);  // passed: at once
  for (const auto pollable : {Host::Pollable::no, Host::Pollable::yes}) {
    const auto semaphore = mHost->makeSemaphore(pollable);
    semaphore->signal();
    semaphore->signal();
    semaphore->wait();
    EXPECT_TRUE(semaphore->waitUntil(0));
    const std::uint64_t deadline = now() + 2 * kMs;
    EXPECT_FALSE(semaphore->waitUntil(deadline));
    EXPECT_GE(now(), deadline);
  }
}

TEST_P(HostContract, JobsRunInTheOrderOfTheirPostsWhoeverPosted) {
  // A job that another thread posted before it ended must come before one that is
  // posted after the join: the clock's stop stands on this.
  Queue queue("order");
  std::vector<int> seen;
  for (int round = 0; round < 200; ++round) {
    const auto thread = mHost->startThread("poster", [&queue, &seen, round] {
      const RealtimeContext realtime;
      queue.async(realtime, [&seen, round] { seen.push_back(2 * round); });
    });
    thread->join();
    queue.async([&seen, round] { seen.push_back(2 * round + 1); });
  }
  queue.sync([] {});
  EXPECT_EQ(seen.size(), 400U);
  EXPECT_EQ(std::adjacent_find(seen.begin(), seen.end(), std::greater_equal()), seen.end());
}

TEST_P(HostContract, AFullQueueRefusesRealtimePostsAndGrowsForOthersAndRunsAllAtItsEnd) {
  std::atomic<std::uint32_t> ran{0};
  std::uint32_t accepted = 0;
  {
    Queue queue("full");
    const auto gate = mHost->makeSemaphore();
    const auto job = [&ran] { ++ran; };
    queue.async([&gate] { gate->wait(); });
    for (std::uint32_t i = 0; i < Queue::kCapacity + 10; ++i) {
      const RealtimeContext realtime;
      accepted += queue.async(realtime, job) ? 1 : 0;
    }
    EXPECT_GE(accepted, Queue::kCapacity - 1);
    EXPECT_LE(accepted, Queue::kCapacity + 1);
    queue.async(job);
    gate->signal();
    queue.sync([] {});
    EXPECT_EQ(ran, accepted + 1);
    queue.async(job);
  }
  EXPECT_EQ(ran, accepted + 2);
}

TEST_P(HostContract, AfterRunsAtItsTimeInOrderOfTimesAndNotOnAQueueThatEnded) {
  MainQueue& mainQueue = mHost->mainQueue();
  const std::uint64_t start = now();
  const auto order = std::make_shared<std::vector<int>>();
  {
    Queue queue("going");
    queue.after(4 * kMs, [order] { order->push_back(0); });
    queue.async([this, &queue, order] {
      mHost->mach_wait_until(now() + 20 * kMs);  // the end has begun meanwhile
      queue.after(1000 * kMs, [order] {});
    });
  }
  // A timer that is left would post to a queue that has ended.
  EXPECT_EQ(order.use_count(), 1);
  for (const int ms : {29, 23}) {
    mainQueue.after(static_cast<std::uint64_t>(ms) * kMs, [&, ms] { order->push_back(ms); });
  }
  mainQueue.after(30 * kMs, [&mainQueue] { mainQueue.stop(); });
  mainQueue.run();
  EXPECT_EQ(*order, (std::vector<int>{23, 29}));
  EXPECT_GE(now(), start + 30 * kMs);
}

TEST_P(HostContract, ATimerFiresOnceAtItsLatestDeadlineAndNeverOnceCancelled) {
  Queue queue("watched");
  std::atomic<int> fired{0};
  const auto done = mHost->makeSemaphore();
  Timer timer(queue, [&] {
    ++fired;
    queue.assertCurrent();
    done->signal();
  });
  timer.setDeadline(now() + 3600 * 1000 * kMs);
  timer.resume();
  std::uint64_t last = 0;
  for (int i = 0; i < 5; ++i) {
    mHost->mach_wait_until(now() + 2 * kMs);
    const RealtimeContext realtime;
    last = now() + 20 * kMs;
    timer.setDeadline(last);
  }
  EXPECT_TRUE(done->waitUntil(now() + 5000 * kMs));
  EXPECT_GE(now(), last);

  Timer cancelled(queue, [&fired] { ++fired; });
  cancelled.setDeadline(now() + 3 * kMs);
  cancelled.resume();
  cancelled.cancel();
  mHost->mach_wait_until(now() + 8 * kMs);
  queue.sync([] {});
  EXPECT_EQ(fired, 1);
}

TEST_P(HostContract, TheMainQueueRunsInItsOwnLoopOrAnotherUntilOneStopEndsIt) {
  MainQueue& mainQueue = mHost->mainQueue();
  EXPECT_TRUE(mainQueue.isCurrent());
  std::atomic<int> ran{0};
  const auto expectRuns = [&] {
    ran = 0;
    const auto thread = mHost->startThread("poster", [&] {
      for (int i = 0; i < 50; ++i) {
        mainQueue.async([&ran] { ++ran; });
      }
      mainQueue.async([&mainQueue] { mainQueue.stop(); });
    });
    mainQueue.run();
    thread->join();
    EXPECT_EQ(ran, 50);
  };
  expectRuns();
  mainQueue.async([&ran] { ++ran; });
  mainQueue.stop();
  mainQueue.run();  // a stop that came before
  EXPECT_EQ(ran, 51);
  expectRuns();

  // Another loop's way: readable when a job waits, silent when none does.
  mainQueue.drainPending();
  const int descriptor = mainQueue.descriptor();
  const auto expectReadable = [descriptor](bool readable) {
    pollfd entry{descriptor, POLLIN, 0};
    EXPECT_EQ(descriptor < 0 || poll(&entry, 1, 0) == 1, descriptor < 0 || readable);
  };
  expectReadable(false);
  mainQueue.async([&ran] { ++ran; });
  expectReadable(true);
  EXPECT_TRUE(mainQueue.drainPending());
  EXPECT_EQ(ran, 51);
  expectReadable(false);
  mainQueue.async([&mainQueue] { mainQueue.stop(); });
  EXPECT_TRUE(mainQueue.drainPending());
  EXPECT_FALSE(mainQueue.drainPending());  // the job's stop
  EXPECT_TRUE(mainQueue.drainPending());
  expectRuns();

  // A drain up to a time does not end earlier, and takes no stop from the loop.
  const std::uint64_t deadline = now() + 5 * kMs;
  mainQueue.stop();
  while (mainQueue.drainUntil(deadline)) {
  }
  EXPECT_GE(now(), deadline);
  EXPECT_FALSE(mainQueue.drainPending());
}

TEST_P(HostContract, ARecursiveMutexKeepsOthersOutWhileItsHolderWaits) {
  constexpr int kThreads = 3;
  constexpr int kRounds = 40;
  Queue queue("worker");
  RecursiveMutex mutex;
  int inside = 0;
  int met = 0;
  int rounds = 0;  // no atomic: what the mutex guards, ThreadSanitizer watches
  {
    std::vector<std::unique_ptr<Thread>> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.push_back(mHost->startThread("locker", [&] {
        for (int round = 0; round < kRounds; ++round) {
          const std::lock_guard outer(mutex);
          met += inside++;
          queue.sync([] {});
          {
            const std::lock_guard inner(mutex);
            mHost->mach_wait_until(now() + kMs / 20);
          }
          mHost->mach_wait_until(now() + kMs / 20);  // still held, by the outer one
          ++rounds;
          --inside;
        }
      }));
    }
  }
  EXPECT_EQ(met, 0);
  EXPECT_EQ(rounds, kThreads * kRounds);
}

INSTANTIATE_TEST_SUITE_P(
    Hosts, HostContract,
    testing::Values(HostKind::of<SystemHost>("system"), HostKind::of<SimulatedHost>("simulated"),
                    HostKind{"shuffled",
                             [] { return std::unique_ptr<Host>(new SimulatedHost(7)); }}),
    test::kNameOfKind);

}  // namespace
}  // namespace velor::host
