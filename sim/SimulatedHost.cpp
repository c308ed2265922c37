// SPDX-License-Identifier: MIT
#include "sim/SimulatedHost.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/host/Exchanged.h"
#include "platform/host/Realtime.h"
#include "platform/host/ThreadState.h"

#if defined(__has_feature)
#define VELOR_HAS_FEATURE(x) __has_feature(x)
#else
#define VELOR_HAS_FEATURE(x) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || VELOR_HAS_FEATURE(address_sanitizer)
#define VELOR_ASAN 1
#include <sanitizer/common_interface_defs.h>
#endif
#if defined(__SANITIZE_THREAD__) || VELOR_HAS_FEATURE(thread_sanitizer)
#define VELOR_TSAN 1
#include <sanitizer/tsan_interface.h>
#endif

namespace velor::host {
namespace {

constexpr std::uint64_t kStartTime = 1'000'000'000'000;  // any time but 0
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
constexpr std::size_t kStackBytes = 512 * 1024;
constexpr std::size_t kGuardBytes = 4096;

// The C++ runtime's record of the exceptions under way on a thread (Itanium C++
// ABI, 2.2.2), which each fiber must have for itself.
struct ExceptionState {
  void* caught = nullptr;
  unsigned uncaught = 0;
};

ExceptionState exchangeExceptionState(const ExceptionState& next) {
  auto* globals = reinterpret_cast<ExceptionState*>(abi::__cxa_get_globals());
  return std::exchange(*globals, next);
}

struct Stack {
  void* base = nullptr;
};

}  // namespace

struct SimulatedHost::Scheduler {
  struct Fiber {
    std::string name;
    std::function<void()> body;
    ucontext_t context{};
    Stack stack;
    bool done = false;
    std::unique_ptr<Semaphore> ended;

    // The wait under way; each has its own number, so that an old entry among
    // the sleepers is known for what it is.
    std::uint64_t waitNumber = 0;
    bool timedOut = false;

    ThreadState state;
    int realtimeDepth = 0;
    ExceptionState exceptions;

    void* fakeStack = nullptr;          // AddressSanitizer
    const void* stackBottom = nullptr;  // AddressSanitizer
    std::size_t stackSize = 0;          // AddressSanitizer
    void* tsanFiber = nullptr;          // ThreadSanitizer
  };

  struct Sleeper {
    std::uint64_t deadline;
    std::uint64_t order;
    Fiber* fiber;
    std::uint64_t waitNumber;
    bool operator>(const Sleeper& other) const {
      return std::tie(deadline, order) > std::tie(other.deadline, other.order);
    }
  };

  explicit Scheduler(std::uint64_t seed) : random(seed), shuffle(seed != 0) {
    mainFiber.name = "main";
#ifdef VELOR_TSAN
    mainFiber.tsanFiber = __tsan_get_current_fiber();
#endif
  }

  ~Scheduler() {
    for (const Stack& stack : freeStacks) {
      munmap(stack.base, kStackBytes + kGuardBytes);
    }
  }

  // --- waiting ---

  // Gives up the processor until `wake` or the deadline; false on the deadline.
  bool block(std::uint64_t deadline) {
    Fiber* self = running;
    ++self->waitNumber;
    self->timedOut = false;
    waiting.push_back(self);
    if (deadline != kNever) {
      sleepers.push_back({deadline, nextOrder++, self, self->waitNumber});
      std::push_heap(sleepers.begin(), sleepers.end(), std::greater<>());
    }
    switchTo(pickNext());
    return !self->timedOut;
  }

  void wake(Fiber* fiber, bool timedOut) {
    ++fiber->waitNumber;
    fiber->timedOut = timedOut;
    std::erase(waiting, fiber);
    ready.push_back(fiber);
  }

  bool isStale(const Sleeper& sleeper) const {
    return sleeper.fiber->waitNumber != sleeper.waitNumber;
  }

  void dropStale() {
    while (!sleepers.empty() && isStale(sleepers.front())) {
      popSleeper();
    }
  }

  void popSleeper() {
    std::pop_heap(sleepers.begin(), sleepers.end(), std::greater<>());
    sleepers.pop_back();
  }

  // A wait that was woken before its deadline is among them still.
  void forgetSleeper(const Fiber* fiber) {
    std::erase_if(sleepers, [fiber](const Sleeper& sleeper) { return sleeper.fiber == fiber; });
    std::make_heap(sleepers.begin(), sleepers.end(), std::greater<>());
  }

  // True while something besides the caller can run at the present time.
  bool anythingDue() {
    dropStale();
    return !ready.empty() || (!sleepers.empty() && sleepers.front().deadline <= now);
  }

  Fiber* pickNext() {
    for (;;) {
      if (!ready.empty()) {
        std::size_t index = 0;
        if (shuffle && ready.size() > 1) {
          index = static_cast<std::size_t>(random() % ready.size());
        }
        Fiber* fiber = ready[index];
        ready.erase(ready.begin() + static_cast<std::ptrdiff_t>(index));
        return fiber;
      }
      dropStale();
      if (sleepers.empty()) {
        std::fputs("simulated host: every thread waits, for nothing that can come:", stderr);
        for (const Fiber* fiber : waiting) {
          std::fprintf(stderr, " %s", fiber->name.c_str());
        }
        std::fputc('\n', stderr);
        std::abort();
      }
      const Sleeper sleeper = sleepers.front();
      popSleeper();
      now = std::max(now, sleeper.deadline);
      wake(sleeper.fiber, true);
    }
  }

  // --- fibers ---

  std::shared_ptr<Fiber> start(std::string name, std::function<void()> body) {
    auto fiber = std::make_shared<Fiber>();
    fiber->name = std::move(name);
    fiber->body = std::move(body);
    fiber->stack = takeStack();
    fiber->stackBottom = static_cast<char*>(fiber->stack.base) + kGuardBytes;
    fiber->stackSize = kStackBytes;
    getcontext(&fiber->context);
    fiber->context.uc_stack.ss_sp = static_cast<char*>(fiber->stack.base) + kGuardBytes;
    fiber->context.uc_stack.ss_size = kStackBytes;
    fiber->context.uc_link = nullptr;
    // makecontext passes ints only.
    const auto address = reinterpret_cast<std::uintptr_t>(this);
    makecontext(&fiber->context, reinterpret_cast<void (*)()>(&Scheduler::enter), 2,
                static_cast<unsigned>(address >> 32), static_cast<unsigned>(address));
#ifdef VELOR_TSAN
    fiber->tsanFiber = __tsan_create_fiber(0);
#endif
    ready.push_back(fiber.get());
    ++live;
    return fiber;
  }

  static void enter(unsigned high, unsigned low) {
    auto* self = reinterpret_cast<Scheduler*>(static_cast<std::uintptr_t>(high) << 32 |
                                              static_cast<std::uintptr_t>(low));
    self->afterSwitch();
    Fiber* fiber = self->running;
    fiber->body();
    fiber->body = nullptr;
    fiber->done = true;
    self->forgetSleeper(fiber);
    --self->live;
    // Whoever joins can run only after the switch, which is the last use of the record.
    fiber->ended->signal();
    self->switchTo(self->pickNext());
  }

  void switchTo(Fiber* next) {
    Fiber* self = running;
    if (next == self) {
      return;
    }
    self->exceptions = exchangeExceptionState(next->exceptions);
    self->realtimeDepth = std::exchange(host::realtimeDepth(), next->realtimeDepth);
    std::swap(self->state, threadState());
    std::swap(threadState(), next->state);
    previous = self;
    running = next;
#ifdef VELOR_ASAN
    __sanitizer_start_switch_fiber(self->done ? nullptr : &self->fakeStack, next->stackBottom,
                                   next->stackSize);
#endif
#ifdef VELOR_TSAN
    __tsan_switch_to_fiber(next->tsanFiber, 0);
#endif
    swapcontext(&self->context, &next->context);
    afterSwitch();
  }

  // The first thing on the other side.
  void afterSwitch() {
#ifdef VELOR_ASAN
    const void* bottom = nullptr;
    std::size_t size = 0;
    __sanitizer_finish_switch_fiber(running->fakeStack, &bottom, &size);
    if (previous == &mainFiber) {
      mainFiber.stackBottom = bottom;
      mainFiber.stackSize = size;
    }
#endif
    if (previous->done) {
#ifdef VELOR_TSAN
      __tsan_destroy_fiber(previous->tsanFiber);
#endif
      freeStacks.push_back(previous->stack);
    }
  }

  Stack takeStack() {
    if (!freeStacks.empty()) {
      const Stack stack = freeStacks.back();
      freeStacks.pop_back();
      return stack;
    }
    void* base = mmap(nullptr, kStackBytes + kGuardBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (base == MAP_FAILED || mprotect(base, kGuardBytes, PROT_NONE) != 0) {
      std::perror("fiber stack");
      std::abort();
    }
    return {base};
  }

  std::int64_t microseconds() const {
    return static_cast<std::int64_t>(now / 1000);
  }

  std::uint64_t now = kStartTime;
  std::int64_t wallOffset = -microseconds();  // us
  Fiber mainFiber;
  Fiber* running = &mainFiber;
  Fiber* previous = &mainFiber;
  std::deque<Fiber*> ready;
  std::vector<Fiber*> waiting;    // for the report alone
  std::vector<Sleeper> sleepers;  // a heap, the earliest first
  std::uint64_t nextOrder = 0;
  std::vector<Stack> freeStacks;
  int live = 0;
  std::mt19937_64 random;
  bool shuffle;
};

class SimulatedHost::SimulatedSemaphore final : public Semaphore {
 public:
  explicit SimulatedSemaphore(Scheduler& scheduler) : mScheduler(scheduler) {}

  void signal() noexcept override {
    // The scheduler's own bookkeeping stands for the kernel's, which a real-time
    // thread's system call is free to do.
    const Exchanged bookkeeping(realtimeDepth(), 0);
    if (mWaiters.empty()) {
      ++mCount;
      return;
    }
    Scheduler::Fiber* fiber = mWaiters.front();
    mWaiters.pop_front();
    mScheduler.wake(fiber, false);
  }

  void wait() override { waitUntil(kNever); }

  bool waitUntil(std::uint64_t deadline) override {
    if (mCount > 0) {
      --mCount;
      return true;
    }
    if (deadline <= mScheduler.now) {
      return false;
    }
    Scheduler::Fiber* self = mScheduler.running;
    mWaiters.push_back(self);
    const bool taken = mScheduler.block(deadline);
    if (!taken) {
      std::erase(mWaiters, self);
    }
    return taken;
  }

 private:
  Scheduler& mScheduler;
  std::uint64_t mCount = 0;
  std::deque<Scheduler::Fiber*> mWaiters;
};

class SimulatedHost::SimulatedThread final : public Thread {
 public:
  explicit SimulatedThread(std::shared_ptr<Scheduler::Fiber> fiber) : mFiber(std::move(fiber)) {}
  ~SimulatedThread() override { SimulatedThread::join(); }
  void join() override {
    if (!mJoined) {
      mFiber->ended->wait();
      mJoined = true;
    }
  }

 private:
  const std::shared_ptr<Scheduler::Fiber> mFiber;
  bool mJoined = false;
};

SimulatedHost::SimulatedHost(std::uint64_t seed) : mScheduler(std::make_unique<Scheduler>(seed)) {
  makeServices();
}

SimulatedHost::~SimulatedHost() {
  endServices();
  if (mScheduler->live != 0) {
    std::fprintf(stderr, "simulated host: %d threads have not ended\n", mScheduler->live);
    std::abort();
  }
  threadState() = {};
}

void SimulatedHost::advance(std::uint64_t duration) {
  Scheduler& scheduler = *mScheduler;
  if (scheduler.running != &scheduler.mainFiber) {
    std::fputs("simulated host: only the main thread advances time\n", stderr);
    std::abort();
  }
  MainQueue& queue = mainQueue();
  const std::uint64_t target = scheduler.now + duration;
  while (queue.drainUntil(target)) {
  }
  // Jobs that are due now, and jobs that follow from them.
  while (queue.drainUntil(scheduler.now) || scheduler.anythingDue()) {
    if (scheduler.anythingDue()) {
      scheduler.block(scheduler.now);
    }
  }
}

std::uint64_t SimulatedHost::AudioGetCurrentHostTime() const noexcept {
  return mScheduler->now;
}

void SimulatedHost::setWallClock(timeval now) {
  mScheduler->wallOffset = static_cast<std::int64_t>(now.tv_sec) * kMicrosecondsPerSecond +
                           now.tv_usec - mScheduler->microseconds();
}

timeval SimulatedHost::gettimeofday() const noexcept {
  const std::int64_t wall = mScheduler->microseconds() + mScheduler->wallOffset;
  return {static_cast<time_t>(wall / kMicrosecondsPerSecond),
          static_cast<suseconds_t>(wall % kMicrosecondsPerSecond)};
}

int SimulatedHost::mach_timebase_info(MachTimebaseInfo& info) const noexcept {
  info = {1, 1};
  return 0;
}

void SimulatedHost::mach_wait_until(std::uint64_t deadline) noexcept {
  if (deadline > mScheduler->now) {
    mScheduler->block(deadline);
  }
}

int SimulatedHost::thread_policy_set(const ThreadTimeConstraintPolicy&, ThreadRole) noexcept {
  return 0;
}

std::unique_ptr<Thread> SimulatedHost::startThread(std::string name, std::function<void()> body) {
  auto fiber = mScheduler->start(std::move(name), std::move(body));
  fiber->state.semaphore = makeSemaphore(Pollable::no);
  fiber->ended = makeSemaphore(Pollable::no);
  return std::make_unique<SimulatedThread>(std::move(fiber));
}

std::unique_ptr<Semaphore> SimulatedHost::makeSemaphore(Pollable) {
  return std::make_unique<SimulatedSemaphore>(*mScheduler);
}

Semaphore& SimulatedHost::threadSemaphore() {
  auto& semaphore = threadState().semaphore;
  if (semaphore == nullptr) {
    semaphore = makeSemaphore(Pollable::no);
  }
  return *semaphore;
}

}  // namespace velor::host
