// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>

#include "platform/host/Queue.h"

namespace velor {

/// The plain form of KVWatchdog, for owners that are plain modules: the same
/// behaviour and order of use. An opaque record of this module, from
/// `kv_watchdog_create` to `kv_watchdog_dispose`.
struct kv_watchdog;

/// Called with the reference that was given with it.
using kv_watchdog_action = std::function<void(kv_watchdog* watchdog, void* refCon)>;

/// A result of the operations below, beside 0: a bad argument.
inline constexpr std::int32_t kv_watchdog_paramErr = -50;

/// -50, and nothing is made, unless `seconds` is above 0 and action and queue are
/// given. The queue and what `refCon` points to must outlive the watchdog.
std::int32_t kv_watchdog_create(kv_watchdog** watchdog, kv_watchdog_action action,
                                host::Queue* queue, void* refCon, double seconds);

// A null watchdog ends the program in each of the next four.

/// The deadline becomes now. -50 unless `seconds` is above 0.
/// Any thread. Realtime-safe: yes (one system call).
std::int32_t kv_watchdog_set_timeinterval(kv_watchdog* watchdog, double seconds) noexcept;

/// All is well: the deadline becomes one interval from now.
/// Any thread. Realtime-safe: yes.
std::int32_t kv_watchdog_validate(kv_watchdog* watchdog) noexcept;

/// Any thread. Realtime-safe: no.
std::int32_t kv_watchdog_cancel(kv_watchdog* watchdog);

/// It may act `seconds` from now, once the main queue has run then. -50 unless
/// `seconds` is above 0. Once in a watchdog's life. Any thread. Realtime-safe: no.
std::int32_t kv_watchdog_resume_after(kv_watchdog* watchdog, double seconds);

/// Cancels and frees; -50 for null. Any thread, the action included. An action
/// that is under way on another thread keeps the record until it returns.
std::int32_t kv_watchdog_dispose(kv_watchdog* watchdog);

}  // namespace velor
