// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

#include "platform/host/Realtime.h"

namespace velor {

// A periodic timer on a thread of its own, in the host's real-time class, that
// wakes at absolute deadlines and calls one callback. Each deadline is the former
// one plus the interval: a late wake-up or a slow callback does not shift later
// deadlines, and a late thread calls at once until it has caught up. The
// first call comes one interval after the thread's start.
//
// The test for the end of a run stands before the sleep: after a stop the sleep
// under way runs out and the callback is called once more.
//
// `start`, `stop` and `join` may come from different threads, never from the callback.
// One that meets another waits for its end: a start during a stop begins a new run
// after the old one, and a second stop finds no thread.

/// An opaque record of this module, from `kv_hptimer_create` to `kv_hptimer_dispose`.
struct kv_hptimer_s;

/// Runs on the timer's thread. Keep it short; it must not wait for anything that may wait
/// for the timer.
using kv_hptimer_block = std::function<void(const host::RealtimeContext&)>;

/// The results of the operations below, beside 0 and the system's error for a thread
/// that it does not start: a bad argument, and, where said so, a null timer.
inline constexpr std::int32_t kv_hptimer_paramErr = -50;
inline constexpr std::int32_t kv_hptimer_nullErr = -1;

/// -50 for an interval of 0 ns or no place for the result; nothing is made then.
/// A new timer runs in effect without end.
std::int32_t kv_hptimer_create(kv_hptimer_s** timer, std::uint64_t interval);

/// The wake-ups of a run, from the next start on. -50 for a null timer.
std::int32_t kv_hptimer_set_repeat_count(kv_hptimer_s* timer, std::uint64_t count);

/// ns. A running timer takes it at its next wake-up. Sets the computation back to
/// 0.05. -1 for a null timer, -50 for 0, which leaves the interval as it was.
/// Any thread. Realtime-safe: yes.
std::int32_t kv_hptimer_set_interval(kv_hptimer_s* timer, std::uint64_t interval);

/// The part of the interval that a wake-up may take, for the next thread. -50 for a
/// null timer, for what is not a normal number with 0 < value < 1, and while wake-ups
/// remain; that includes all the time after a first run, which leaves the count of
/// them wrapped around.
std::int32_t kv_hptimer_set_computation(kv_hptimer_s* timer, double computation);

/// Writes the interval, ns. Ignore the result: it is -1 on success too. With
/// -50 (an interval of 0) nothing is written.
std::int32_t kv_hptimer_get_interval(const kv_hptimer_s* timer, std::uint64_t* interval);

/// Stores a copy of the callback; -50 for a null timer. A former one stays until
/// the timer is freed, since the thread may be in it. One caller at a time.
std::int32_t kv_hptimer_set_block(kv_hptimer_s* timer, kv_hptimer_block block);

/// Starts a run. While there is a thread, even one whose run is over, it only sets the
/// count of wake-ups again. -1 for a null timer, or the system's error when it does not
/// start a thread.
std::int32_t kv_hptimer_start(kv_hptimer_s* timer);

/// Ends the run and waits for the thread, up to one interval and one call. -50 for a
/// null timer or when there is no thread.
std::int32_t kv_hptimer_stop(kv_hptimer_s* timer);

/// Waits for a run of finite length to end. -1 for a null timer, -50 when there is
/// no thread.
std::int32_t kv_hptimer_join(kv_hptimer_s* timer);

/// Frees the timer; 0, for null too. While wake-ups remain it starts first, which
/// makes a thread if a former run has left none. The thread reads the record up to its
/// end: the callback is removed, no call begins any more, and the record is
/// freed when the thread has ended, up to one interval later. Not from the callback.
std::int32_t kv_hptimer_dispose(kv_hptimer_s* timer);

}  // namespace velor
