// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

#include "Kv-Appkit/KVWatchdogTimer.h"
#include "platform/host/Queue.h"

namespace velor {

/// Acts once, when `validate` was not called within its interval.
///
/// In this order: make it, call `resumeAfter` once, call `validate` again and
/// again; the action runs when those calls stop. The watchdog is spent then, and the owner
/// releases it and makes another at the next signal. The end of the last reference
/// cancels, on any thread and in the action too; a running action keeps its
/// watchdog alive, so it is shared.
class KVWatchdog : public std::enable_shared_from_this<KVWatchdog> {
 public:
  /// Called with the reference that was given with it.
  using Action = std::function<void(KVWatchdog&, const std::shared_ptr<void>& refCon)>;

  /// `interval` in seconds, truncated to nanoseconds and not checked: 0 and less has
  /// always passed. The action runs on `queue`, which must outlive
  /// the watchdog. `refCon` lives as long as the watchdog.
  static std::shared_ptr<KVWatchdog> initWithTimeinterval(double interval, Action action,
                                                          host::Queue& queue,
                                                          std::shared_ptr<void> refCon = nullptr);
  KVWatchdog(const KVWatchdog&) = delete;
  KVWatchdog& operator=(const KVWatchdog&) = delete;

  /// Seconds. The deadline becomes now, so that it fires at once unless `validate`
  /// follows or it is not resumed yet. Any thread. Realtime-safe: yes (one system
  /// call).
  void setTimeInterval(double interval) noexcept;

  /// All is well: the deadline becomes one interval from now, resumed or not. Does
  /// nothing once the action has begun. Any thread. Realtime-safe: yes.
  void validate() noexcept;

  /// The action does not begin any more, unless another thread is about to begin it.
  /// Any thread. Realtime-safe: no.
  void cancel();

  /// Lets it act from so many seconds on; if the deadline has passed by then, at once.
  /// The main queue must run for this. Once in a watchdog's life.
  /// Any thread. Realtime-safe: no.
  void resumeAfter(double seconds);

 private:
  KVWatchdog(Action action, std::shared_ptr<void> refCon);

  const Action mAction;
  const std::shared_ptr<void> mRefCon;
  std::shared_ptr<KVWatchdogTimer> mTimer;  // set on making for good
};

}  // namespace velor
