// SPDX-License-Identifier: MIT
#include "Kv-Appkit/kv_hptimer.h"
#include "Kv-Appkit/KVTimebase.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <forward_list>
#include <limits>
#include <memory>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "platform/host/Host.h"

namespace velor {
namespace {
constexpr double kComputation = 0.05;
}

struct kv_hptimer_s {
  std::atomic<std::uint64_t> interval{0};  // host ticks
  std::atomic<std::uint64_t> repeatCount{std::numeric_limits<std::uint64_t>::max()};
  std::atomic<std::uint64_t> remaining{0};
  std::atomic<const kv_hptimer_block*> block{nullptr};
  std::unique_ptr<host::Thread> thread;  // for the holder of threadFree
  std::atomic<double> computation{kComputation};

  // Taken by each start, stop and join. A semaphore of the host and no mutex: simulated
  // time must go on while one waits here for the other's join.
  const std::unique_ptr<host::Semaphore> threadFree = host::current().makeSemaphore();
  std::forward_list<kv_hptimer_block> blocks;  // all that were ever set
};

namespace {

// Without the class the thread goes on as an ordinary one; the host has logged it.
void applyPolicy(const kv_hptimer_s& timer, host::Host& host) {
  const double computation = static_cast<double>(timer.interval.load()) * timer.computation.load();
  host::ThreadTimeConstraintPolicy policy;
  policy.period = 0;
  policy.computation = static_cast<std::uint32_t>(static_cast<std::uint64_t>(computation));
  policy.constraint = policy.computation * 2;
  policy.preemptible = 0;
  host.thread_policy_set(policy, host::ThreadRole::timer);
}

void run(kv_hptimer_s& timer, host::Host& host) {
  applyPolicy(timer, host);
  std::uint64_t next = host.AudioGetCurrentHostTime();
  while (timer.remaining.fetch_sub(1) != 0) {
    next += timer.interval.load();
    host.mach_wait_until(next);
    if (const kv_hptimer_block* block = timer.block.load()) {
      const host::RealtimeContext realtime;
      (*block)(realtime);
    }
  }
}

class ThreadHold {
 public:
  explicit ThreadHold(kv_hptimer_s& timer) : mTimer(timer) { mTimer.threadFree->wait(); }
  ~ThreadHold() { mTimer.threadFree->signal(); }
  ThreadHold(const ThreadHold&) = delete;
  ThreadHold& operator=(const ThreadHold&) = delete;

 private:
  kv_hptimer_s& mTimer;
};

// The caller holds the thread.
std::int32_t joinThread(kv_hptimer_s& timer) {
  if (timer.thread == nullptr) {
    return kv_hptimer_paramErr;
  }
  timer.thread->join();
  timer.thread.reset();
  return 0;
}

}  // namespace

std::int32_t kv_hptimer_create(kv_hptimer_s** timer, std::uint64_t interval) {
  if (timer == nullptr || interval == 0) {
    return kv_hptimer_paramErr;
  }
  *timer = new kv_hptimer_s;
  (*timer)->threadFree->signal();
  return kv_hptimer_set_interval(*timer, interval);
}

std::int32_t kv_hptimer_set_repeat_count(kv_hptimer_s* timer, std::uint64_t count) {
  if (timer == nullptr) {
    return kv_hptimer_paramErr;
  }
  timer->repeatCount.store(count);
  return 0;
}

std::int32_t kv_hptimer_set_interval(kv_hptimer_s* timer, std::uint64_t interval) {
  if (timer == nullptr) {
    return kv_hptimer_nullErr;
  }
  if (interval == 0) {
    return kv_hptimer_paramErr;
  }
  timer->computation.store(kComputation);
  timer->interval.store(interval * KVTimebase().denom / KVTimebase().numer);
  return 0;
}

std::int32_t kv_hptimer_set_computation(kv_hptimer_s* timer, double computation) {
  if (timer == nullptr || timer->remaining.load() != 0 || !std::isnormal(computation) ||
      computation <= 0 || computation >= 1) {
    return kv_hptimer_paramErr;
  }
  timer->computation.store(computation);
  return 0;
}

std::int32_t kv_hptimer_get_interval(const kv_hptimer_s* timer, std::uint64_t* interval) {
  if (timer == nullptr || interval == nullptr) {
    return kv_hptimer_nullErr;
  }
  const std::uint64_t ticks = timer->interval.load();
  if (ticks == 0) {
    return kv_hptimer_paramErr;
  }
  *interval = ticks * KVTimebase().numer / KVTimebase().denom;
  return kv_hptimer_nullErr;
}

std::int32_t kv_hptimer_set_block(kv_hptimer_s* timer, kv_hptimer_block block) {
  if (timer == nullptr) {
    return kv_hptimer_paramErr;
  }
  timer->blocks.push_front(std::move(block));
  const kv_hptimer_block& stored = timer->blocks.front();
  timer->block.store(stored ? &stored : nullptr);
  return 0;
}

std::int32_t kv_hptimer_start(kv_hptimer_s* timer) {
  if (timer == nullptr) {
    return kv_hptimer_nullErr;
  }
  const ThreadHold hold(*timer);
  timer->remaining.store(timer->repeatCount.load());
  if (timer->thread == nullptr) {
    host::Host& host = host::current();
    timer->thread = host.startThread("velor.hptimer", [timer, &host] { run(*timer, host); });
  }
  return timer->thread != nullptr ? 0 : EAGAIN;
}

std::int32_t kv_hptimer_stop(kv_hptimer_s* timer) {
  if (timer == nullptr) {
    return kv_hptimer_paramErr;
  }
  timer->remaining.store(0);  // ends the run of a join that this call waits for
  const ThreadHold hold(*timer);
  timer->remaining.store(0);  // ends a run that began meanwhile
  return joinThread(*timer);
}

std::int32_t kv_hptimer_join(kv_hptimer_s* timer) {
  if (timer == nullptr) {
    return kv_hptimer_nullErr;
  }
  const ThreadHold hold(*timer);
  return joinThread(*timer);
}

std::int32_t kv_hptimer_dispose(kv_hptimer_s* timer) {
  if (timer == nullptr) {
    return 0;
  }
  if (timer->remaining.load() != 0) {
    kv_hptimer_start(timer);
  }
  timer->block.store(nullptr);
  // The thread reads the record up to its end, so that must come first.
  kv_hptimer_stop(timer);
  delete timer;
  return 0;
}

}  // namespace velor
