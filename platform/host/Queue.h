// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/host/Mailbox.h"
#include "platform/host/MainLoop.h"
#include "platform/host/Realtime.h"
#include "platform/host/Semaphore.h"
#include "platform/host/Task.h"
#include "platform/host/ThreadAnnotations.h"

namespace velor::host {

class Host;
class Thread;
enum class ThreadRole;

/// A serial queue: jobs run one at a time, in the order in which they were
/// posted, whichever threads posted them. State that belongs to a queue is
/// marked with KV_ON_QUEUE.
///
/// A queue has a thread of its own, but for the main queue (MainQueue).
class KV_CAPABILITY("queue") Queue {
 public:
  /// Jobs that real-time threads can have waiting at once.
  static constexpr std::uint32_t kCapacity = 1024;

  /// Starts the queue's thread on the current host. `label` names the thread.
  explicit Queue(std::string label);
  Queue(std::string label, ThreadRole role);

  /// Discards the timers of this queue, runs the posted jobs, ends the thread.
  /// Not from the queue itself.
  virtual ~Queue();

  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  const std::string& label() const noexcept { return mLabel; }

  /// Posts without waiting. Any thread. Realtime-safe: no, it may allocate.
  void async(Task task);

  /// Posts from a real-time thread: no allocation, at most one system call. A
  /// callable that does not fit in a task does not compile. False when kCapacity jobs
  /// wait already: the job is discarded and counted, and the queue logs the
  /// count with the next job that it runs.
  template <class F>
  bool async(const RealtimeContext& realtime, F&& callable) noexcept {
    static_assert(Task::fitsInline<std::decay_t<F>>, "too large to post without allocation");
    return tryPost(realtime, Task(std::forward<F>(callable)));
  }

  /// Runs the callable on the queue, waits for it, and returns its result or throws its
  /// exception. Ends the program when called on the queue itself, which would wait
  /// forever. Realtime-safe: allocates nothing.
  template <class F>
  auto sync(F&& callable) -> std::invoke_result_t<F&> {
    using Result = std::invoke_result_t<F&>;
    std::exception_ptr failure;
    if constexpr (std::is_void_v<Result>) {
      const auto job = [&callable, &failure] {
        try {
          callable();
        } catch (...) {
          failure = std::current_exception();
        }
      };
      runAndWait(job);
      if (failure) {
        std::rethrow_exception(failure);
      }
    } else {
      std::optional<Result> result;
      const auto job = [&callable, &failure, &result] {
        try {
          result.emplace(callable());
        } catch (...) {
          failure = std::current_exception();
        }
      };
      runAndWait(job);
      if (failure) {
        std::rethrow_exception(failure);
      }
      return std::move(*result);
    }
  }

  /// Posts the job `delay` nanoseconds from now. Any thread. Realtime-safe: no.
  void after(std::uint64_t delay, Task task);

  /// True on the queue's thread.
  bool isCurrent() const noexcept;

  /// Ends the program unless it runs on this queue.
  void assertCurrent() const KV_ASSERTS_ON_QUEUE(this);

 protected:
  struct WithoutThread {};
  Queue(Host& host, std::string label, std::unique_ptr<Semaphore> wake, WithoutThread);

  /// Runs jobs until none is left. The queue's thread alone.
  void drain();
  Host& host() const noexcept { return mHost; }
  Semaphore& wake() const noexcept { return *mWake; }
  void wakeUp() noexcept;
  void acknowledgeWake() noexcept { mWakePending.store(false); }

 private:
  bool tryPost(const RealtimeContext& realtime, Task task) noexcept;
  void runLoop();
  void reportRefused();

  template <class Job>
  void runAndWait(const Job& job) {
    waitFor([](const void* context) { (*static_cast<const Job*>(context))(); }, &job);
  }
  void waitFor(void (*call)(const void*), const void* context);

  Host& mHost;
  const std::string mLabel;
  const std::unique_ptr<Semaphore> mWake;
  std::atomic<bool> mWakePending{false};
  std::atomic<bool> mEnding{false};
  Mailbox<Task> mTasks{kCapacity};
  std::uint64_t mRefusedReported = 0;
  std::unique_ptr<Thread> mThread;
};

/// The queue of the main thread, for the user interface and all delegate
/// reports. It has no thread: whoever owns the main thread drains it, by one of
/// two loops with the same contract. Headless: `run`. Under another event loop:
/// watch `descriptor()` for input and call `drainPending()` whenever it is readable.
class MainQueue final : public Queue, public MainLoop {
 public:
  explicit MainQueue(Host& host);

  void run() override;
  void stop() noexcept override;

  /// Readable while jobs may wait; -1 on the simulated host.
  int descriptor() const noexcept { return wake().descriptor(); }

  /// `stop` was called and no loop has ended for it yet. Any thread.
  bool isStopping() const noexcept { return mStop.load(); }

  /// Runs what is posted and returns: false when `stop` was called, which is then over, and
  /// the loop has to end. The main thread alone.
  bool drainPending();

  /// Waits until the host time `deadline` for jobs and runs those that come; false when
  /// none did. A stop does not end it and remains for the loop. The main thread alone.
  bool drainUntil(std::uint64_t deadline);

 private:
  std::atomic<bool> mStop{false};
};

}  // namespace velor::host
