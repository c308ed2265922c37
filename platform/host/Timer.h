// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/host/PriorityMutex.h"
#include "platform/host/Semaphore.h"
#include "platform/host/Task.h"

namespace velor::host {

class Host;
class Queue;
class Thread;

/// A one-shot deadline that runs a handler on a queue. It is made suspended;
/// nothing fires before `resume`. A deadline that has passed by then fires at
/// once. A later deadline costs one atomic store, and delays a handler that still waits
/// on the queue. After its handler has run the timer is suspended again.
class Timer {
 public:
  /// `handler` runs on `queue`, at most once for each `resume`.
  Timer(Queue& queue, std::function<void()> handler);
  /// Cancels. A handler that runs on another thread meanwhile is not waited for.
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// The host time (ns) at which to fire. Any thread. Realtime-safe: yes; a
  /// deadline earlier than the one before costs one system call.
  void setDeadline(std::uint64_t deadline) noexcept;
  /// Lets the timer fire. Realtime-safe: no.
  void resume();
  /// After it returns the handler does not start, unless another thread is about to
  /// start it. Realtime-safe: no.
  void cancel();

 private:
  friend class TimerService;
  struct State;
  const std::shared_ptr<State> mState;
};

/// The thread "velor.timers", on which all timers of a host wait. It paces freewheels,
/// so it takes the timing class with the first timer.
class TimerService {
 public:
  explicit TimerService(Host& host);
  ~TimerService();

  /// Posts the job to the queue `delay` nanoseconds from now. Any thread.
  void after(Queue& queue, std::uint64_t delay, Task task);

  /// Discards all timers whose handlers would run on this queue.
  void forget(const Queue& queue);

 private:
  friend class Timer;
  void run();
  std::uint64_t fireDue();  // gives the next deadline
  void add(std::shared_ptr<Timer::State> state);
  void wake() noexcept;

  Host& mHost;
  PriorityMutex mMutex;
  std::vector<std::shared_ptr<Timer::State>> mTimers;  // under mMutex
  std::atomic<bool> mEnding{false};
  std::atomic<bool> mWakePending{false};
  const std::unique_ptr<Semaphore> mWake;
  std::unique_ptr<Thread> mThread;
};

}  // namespace velor::host
