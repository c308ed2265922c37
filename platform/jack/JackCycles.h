// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/host/Host.h"

namespace velor::jack {

/// Counts the cycles of the process callback, notes changes of the graph, and waits for
/// both. `awaitRest` and `awaitForgotten` are there because of faults of jackd, which they
/// name.
class JackCycles {
 public:
  /// Without a cycle for this long (ns) the server counts as standing still.
  static constexpr std::uint64_t kLongestCycle = 250'000'000;

  explicit JackCycles(host::Host& host) : mHost(host) {}

  /// Around each process callback. Realtime-safe: yes.
  void begin() noexcept { mCount.fetch_add(1); }
  void end() noexcept { mCount.fetch_add(1); }

  /// Any thread: the graph changes now.
  void noteGraphChange() noexcept { mGraphChanged.store(mHost.AudioGetCurrentHostTime()); }

  // --- on the client's queue ---

  /// A port was unregistered.
  void notePortWent() noexcept { mForgetting = true; }
  /// The client has closed, and its ports with it.
  void noteClosed() noexcept { mForgetting = false; }

  /// Waits until the process callback has begun and ended `count` times, not counting one
  /// that runs now, or until the server stands still.
  void await(std::uint32_t count);

  /// Before a port is unregistered; a fault of jackd's library. After each change of the
  /// graph the library walks its list of our ports on a thread of its own, and nothing keeps
  /// it from using a port that is unregistered meanwhile. So a port goes while the graph
  /// rests.
  void awaitRest();

  /// Before a port is registered; a fault of jackd. It gives the place of a port that went
  /// to the next one at once, while cycles still use the old connections. An input in the
  /// place of an output then makes the library of any client recurse to the end of its
  /// stack. So a port comes two cycles after the last one went.
  void awaitForgotten();

 private:
  host::Host& mHost;
  std::atomic<std::uint32_t> mCount{0};         // odd while the callback runs
  std::atomic<std::uint64_t> mGraphChanged{0};  // host time of the latest change, ns
  bool mForgetting = false;                     // a port went, and no cycle was awaited since
};

}  // namespace velor::jack
