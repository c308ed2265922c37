// SPDX-License-Identifier: MIT
#include "platform/host/SystemHost.h"

#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/host/Log.h"
#include "platform/host/SignalStack.h"
#include "platform/host/ThreadState.h"

namespace velor::host {
namespace {

constexpr std::size_t kThreadNameBytes = 15;

timespec timespecOf(std::uint64_t ns) noexcept {
  timespec t{};
  t.tv_sec = static_cast<time_t>(ns / kNsPerSecond);
  t.tv_nsec = static_cast<long>(ns % kNsPerSecond);
  return t;
}

std::uint64_t monotonicNow() noexcept {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<std::uint64_t>(t.tv_sec) * kNsPerSecond +
         static_cast<std::uint64_t>(t.tv_nsec);
}

class SystemSemaphore final : public Semaphore {
 public:
  SystemSemaphore() { sem_init(&mSemaphore, 0, 0); }
  ~SystemSemaphore() override { sem_destroy(&mSemaphore); }

  void signal() noexcept override {
    mOrder.fetch_add(1, std::memory_order_release);
    sem_post(&mSemaphore);
  }
  void wait() override {
    while (sem_wait(&mSemaphore) != 0 && errno == EINTR) {
    }
    mOrder.load(std::memory_order_acquire);
  }
  bool waitUntil(std::uint64_t deadline) override {
    const timespec until = timespecOf(deadline);
    int result = 0;
    do {
      result = sem_clockwait(&mSemaphore, CLOCK_MONOTONIC, &until);
    } while (result != 0 && errno == EINTR);
    mOrder.load(std::memory_order_acquire);
    return result == 0;
  }

 private:
  sem_t mSemaphore{};
  // sem_post and sem_clockwait order this already; ThreadSanitizer needs it explicitly.
  std::atomic<unsigned> mOrder{0};
};

class DescriptorSemaphore final : public Semaphore {
 public:
  DescriptorSemaphore() : mDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
    if (mDescriptor < 0) {
      std::perror("eventfd");
      std::abort();
    }
  }
  ~DescriptorSemaphore() override { close(mDescriptor); }

  void signal() noexcept override {
    const std::uint64_t one = 1;
    // It fails only at a count of 2^64 - 2, which cannot be reached.
    [[maybe_unused]] const ssize_t written = write(mDescriptor, &one, sizeof one);
  }
  void wait() override {
    while (!take()) {
      pollfd entry{mDescriptor, POLLIN, 0};
      poll(&entry, 1, -1);
    }
  }
  bool waitUntil(std::uint64_t deadline) override {
    while (!take()) {
      const std::uint64_t now = monotonicNow();
      if (now >= deadline) {
        return false;
      }
      pollfd entry{mDescriptor, POLLIN, 0};
      const timespec left = timespecOf(deadline - now);
      ppoll(&entry, 1, &left, nullptr);
    }
    return true;
  }
  int descriptor() const noexcept override { return mDescriptor; }

 private:
  bool take() const noexcept {
    std::uint64_t value = 0;
    return read(mDescriptor, &value, sizeof value) == sizeof value;
  }

  const int mDescriptor;
};

class SystemThread final : public Thread {
 public:
  static std::unique_ptr<Thread> start(std::string name, std::function<void()> body) {
    auto thread = std::make_unique<SystemThread>();
    auto start = std::make_unique<Start>(Start{std::move(name), std::move(body)});
    if (pthread_create(&thread->mThread, nullptr, &SystemThread::main, start.get()) != 0) {
      return nullptr;
    }
    static_cast<void>(start.release());  // the thread's own now
    thread->mJoinable = true;
    return thread;
  }
  ~SystemThread() override { SystemThread::join(); }
  void join() override {
    if (mJoinable) {
      pthread_join(mThread, nullptr);
      mJoinable = false;
    }
  }

 private:
  struct Start {
    std::string name;
    std::function<void()> body;
  };

  static void* main(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    const SignalStack signalStack;
    pthread_setname_np(pthread_self(), start->name.substr(0, kThreadNameBytes).c_str());
    threadState().semaphore = std::make_unique<SystemSemaphore>();
    start->body();
    return nullptr;
  }

  pthread_t mThread{};
  bool mJoinable = false;
};

}  // namespace

ThreadState& threadState() noexcept {
  static thread_local ThreadState state;
  return state;
}

SystemHost::SystemHost(const RealtimeAttempts& attempts) : mAttempts(attempts) {
  makeServices();
}

SystemHost::~SystemHost() {
  endServices();
  threadState() = {};
}

std::uint64_t SystemHost::AudioGetCurrentHostTime() const noexcept {
  return monotonicNow();
}

timeval SystemHost::gettimeofday() const noexcept {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  return now;
}

int SystemHost::mach_timebase_info(MachTimebaseInfo& info) const noexcept {
  info = {1, 1};
  return 0;
}

void SystemHost::mach_wait_until(std::uint64_t deadline) noexcept {
  const timespec until = timespecOf(deadline);
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
  }
}

// The kernel has no class that takes period, computation and constraint without
// binding the thread's whole life to them, so that the role alone decides.
int SystemHost::thread_policy_set(const ThreadTimeConstraintPolicy&, ThreadRole role) noexcept {
  const RealtimeGrant grant = takeRealtimeClass(role, mAttempts);
  if (grant != RealtimeGrant::fifo && !mWarned.exchange(true)) {
    VELOR_LOG_WARNING("%s", realtimeWarning(grant).c_str());
  }
  return grant == RealtimeGrant::ordinary ? -1 : 0;
}

std::unique_ptr<Thread> SystemHost::startThread(std::string name, std::function<void()> body) {
  return SystemThread::start(std::move(name), std::move(body));
}

std::unique_ptr<Semaphore> SystemHost::makeSemaphore(Pollable pollable) {
  if (pollable == Pollable::yes) {
    return std::make_unique<DescriptorSemaphore>();
  }
  return std::make_unique<SystemSemaphore>();
}

Semaphore& SystemHost::threadSemaphore() {
  auto& semaphore = threadState().semaphore;
  if (semaphore == nullptr) {
    semaphore = std::make_unique<SystemSemaphore>();
  }
  return *semaphore;
}

}  // namespace velor::host
