// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "platform/host/Host.h"

namespace velor {

/// The deadline of KVWatchdog and kv_watchdog: it fires once unless `validate` moves it
/// in time. It has no mutex: the worst that a race of `setTimeInterval` and `validate`
/// can do is one deadline measured with the former interval.
class KVWatchdogTimer : public std::enable_shared_from_this<KVWatchdogTimer> {
 public:
  /// Suspended, with the deadline now. The action runs on the queue, once at
  /// most, and never once the timer has gone; the queue must outlive it.
  static std::shared_ptr<KVWatchdogTimer> make(double seconds, std::function<void()> action,
                                               host::Queue& queue);

  /// The deadline becomes now. Any thread. Realtime-safe: yes.
  void setTimeInterval(double seconds) noexcept;
  /// The deadline becomes one interval from now. Any thread. Realtime-safe: yes.
  void validate() noexcept;
  /// Any thread. Realtime-safe: no.
  void cancel();
  /// Posts the start to the main queue, `seconds` from now. Any thread.
  /// Realtime-safe: no.
  void resumeAfter(double seconds);

 private:
  explicit KVWatchdogTimer(std::function<void()> action);
  void fire();

  host::Host& mHost;
  const std::function<void()> mAction;
  std::atomic<std::uint64_t> mInterval{0};  // ns
  std::optional<host::Timer> mTimer;        // set by `make` for good
};

}  // namespace velor
