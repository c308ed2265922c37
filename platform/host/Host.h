// SPDX-License-Identifier: MIT
#pragma once

#include <sys/time.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/host/Queue.h"
#include "platform/host/Semaphore.h"
#include "platform/host/Timer.h"

namespace velor::host {

/// The purpose of a thread, which decides its place among the real-time threads.
enum class ThreadRole {
  ordinary,
  timer,     ///< the clock's timer: wakes, reads the time, posts
  midiRead,  ///< delivers MIDI at its time
  timing,    ///< queues that own timecode, such as the clock's
  audio,     ///< cycles of an audio device
};

/// Host time counts nanoseconds.
inline constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
inline constexpr std::uint64_t kNsPerMs = 1'000'000;

/// The ratio of the host's clock ticks to nanoseconds.
struct MachTimebaseInfo {
  std::uint32_t numer = 0;
  std::uint32_t denom = 0;
};

/// How much of a period (host ticks) a real-time thread asks for.
struct ThreadTimeConstraintPolicy {
  std::uint32_t period = 0;
  std::uint32_t computation = 0;
  std::uint32_t constraint = 0;
  std::uint32_t preemptible = 0;
};

class Thread {
 public:
  /// Joins.
  virtual ~Thread() = default;
  /// Waits for the body to end; a second call does nothing.
  virtual void join() = 0;
};

/// Time, threads, and everything that waits. Real code runs on the system's
/// host; under test it runs on the simulated one, where time stands still while
/// anything can run and jumps to the next deadline when nothing can.
///
/// Host time is nanoseconds of a monotonic clock.
class Host {
 public:
  virtual ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  /// The host time, ns. Any thread. Realtime-safe: yes.
  virtual std::uint64_t AudioGetCurrentHostTime() const noexcept = 0;

  /// The wall clock, UTC. Any thread.
  virtual timeval gettimeofday() const noexcept = 0;

  /// The timebase, 1/1 on both hosts. 0, or a status other than 0.
  virtual int mach_timebase_info(MachTimebaseInfo& info) const noexcept = 0;

  /// Sleeps until the host time `deadline`; a passed one returns at once.
  virtual void mach_wait_until(std::uint64_t deadline) noexcept = 0;

  /// Puts the calling thread into the best real-time class that the system allows.
  /// A refusal is logged once for each host, as a warning with the remedy; the
  /// program goes on. 0, or a status other than 0 when the thread stays an ordinary one.
  virtual int thread_policy_set(const ThreadTimeConstraintPolicy& policy,
                                ThreadRole role) noexcept = 0;

  /// Starts a thread; null when the system refuses. Names are cut to 15 bytes.
  virtual std::unique_ptr<Thread> startThread(std::string name, std::function<void()> body) = 0;

  /// A semaphore with the count 0. A pollable one has a descriptor where the
  /// host has descriptors.
  enum class Pollable { no, yes };
  virtual std::unique_ptr<Semaphore> makeSemaphore(Pollable pollable = Pollable::no) = 0;

  /// The calling thread's own semaphore, on which it waits for another thread's
  /// answer; never used for anything else. Allocates at a thread's first call
  /// unless the host started the thread.
  virtual Semaphore& threadSemaphore() = 0;

  /// The queue of the thread that made the host.
  MainQueue& mainQueue() noexcept { return *mMainQueue; }

  TimerService& timers() noexcept { return *mTimers; }

 protected:
  Host() = default;
  /// A host calls these last in its constructor and first in its destructor: the
  /// services use its primitives.
  void makeServices();
  void endServices() noexcept;

 private:
  std::unique_ptr<MainQueue> mMainQueue;
  std::unique_ptr<TimerService> mTimers;
};

/// The current host. Constructing a host makes it the current one, destroying it
/// restores the former one. There must be one.
Host& current() noexcept;

}  // namespace velor::host
