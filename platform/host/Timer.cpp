// SPDX-License-Identifier: MIT
#include "platform/host/Timer.h"

#include <algorithm>
#include <limits>
#include <mutex>

#include "platform/host/Host.h"
#include "platform/host/Queue.h"

namespace velor::host {

namespace {
constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
}

struct Timer::State {
  State(Queue& target, TimerService& timers, std::function<void()> action)
      : queue(target), service(timers), handler(std::move(action)) {}

  Queue& queue;
  TimerService& service;
  std::function<void()> handler;
  std::atomic<std::uint64_t> deadline{0};
  // The next time at which the service checks this timer; an earlier deadline has to wake it.
  std::atomic<std::uint64_t> lookAt{kNever};
  std::atomic<bool> cancelled{false};
  std::uint64_t due = 0;  // the service's copy of the deadline, under its mutex
};

Timer::Timer(Queue& queue, std::function<void()> handler)
    : mState(std::make_shared<State>(queue, current().timers(), std::move(handler))) {}

Timer::~Timer() {
  cancel();
}

void Timer::setDeadline(std::uint64_t deadline) noexcept {
  mState->deadline.store(deadline);
  if (deadline < mState->lookAt.load() && mState->lookAt.load() != kNever) {
    mState->service.wake();
  }
}

void Timer::resume() {
  mState->service.add(mState);
}

void Timer::cancel() {
  // The service discards the record when it checks it the next time.
  mState->cancelled.store(true);
}

TimerService::TimerService(Host& host) : mHost(host), mWake(host.makeSemaphore()) {
  mThread = mHost.startThread("velor.timers", [this] { run(); });
}

TimerService::~TimerService() {
  mEnding.store(true);
  mWake->signal();
  mThread->join();
}

void TimerService::wake() noexcept {
  if (!mWakePending.exchange(true)) {
    mWake->signal();
  }
}

void TimerService::add(std::shared_ptr<Timer::State> state) {
  {
    const std::lock_guard lock(mMutex);
    // Until the service has checked it, every new deadline is an early one.
    state->lookAt.store(kNever - 1);
    mTimers.push_back(std::move(state));
  }
  wake();
}

void TimerService::forget(const Queue& queue) {
  const std::lock_guard lock(mMutex);
  std::erase_if(mTimers, [&queue](const auto& state) { return &state->queue == &queue; });
}

void TimerService::after(Queue& queue, std::uint64_t delay, Task task) {
  // The record belongs to the service alone, so that it goes with the queue.
  const auto job = std::make_shared<Task>(std::move(task));
  auto state = std::make_shared<Timer::State>(queue, *this, [job] { (*job)(); });
  state->deadline.store(mHost.AudioGetCurrentHostTime() + delay);
  add(std::move(state));
}

void TimerService::run() {
  // Only with the first timer: a program without timers gets no warning about a class that
  // the system refuses.
  mWake->wait();
  mWakePending.store(false);
  if (!mEnding.load()) {
    mHost.thread_policy_set({}, ThreadRole::timing);
  }
  while (!mEnding.load()) {
    const std::uint64_t next = fireDue();
    if (next == kNever) {
      mWake->wait();
    } else {
      mWake->waitUntil(next);
    }
    mWakePending.store(false);
  }
}

std::uint64_t TimerService::fireDue() {
  const std::lock_guard lock(mMutex);
  std::erase_if(mTimers, [](const auto& state) { return state->cancelled.load(); });
  for (const auto& state : mTimers) {
    // Stored first, then read again: a deadline that is set in between wakes this thread.
    do {
      state->due = state->deadline.load();
      state->lookAt.store(state->due);
    } while (state->due != state->deadline.load());
  }
  // Those that are due together fire in the order of their deadlines.
  std::stable_sort(mTimers.begin(), mTimers.end(),
                   [](const auto& a, const auto& b) { return a->due < b->due; });

  const std::uint64_t now = mHost.AudioGetCurrentHostTime();
  const auto firstLater = std::find_if(mTimers.begin(), mTimers.end(),
                                       [now](const auto& state) { return state->due > now; });
  for (auto it = mTimers.begin(); it != firstLater; ++it) {
    (*it)->lookAt.store(kNever);
    (*it)->queue.async([this, state = *it] {
      if (state->cancelled.load()) {
        return;
      }
      if (state->deadline.load() > mHost.AudioGetCurrentHostTime()) {
        add(state);  // the deadline moved while this waited for the queue
        return;
      }
      state->handler();
    });
  }
  mTimers.erase(mTimers.begin(), firstLater);
  return mTimers.empty() ? kNever : mTimers.front()->due;
}

}  // namespace velor::host
