// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVWatchdog.h"

#include <utility>

namespace velor {

std::shared_ptr<KVWatchdog> KVWatchdog::initWithTimeinterval(double interval, Action action,
                                                             host::Queue& queue,
                                                             std::shared_ptr<void> refCon) {
  const std::shared_ptr<KVWatchdog> watchdog(new KVWatchdog(std::move(action), std::move(refCon)));
  watchdog->mTimer = KVWatchdogTimer::make(
      interval,
      [weak = watchdog->weak_from_this()] {
        if (const auto self = weak.lock()) {
          self->mAction(*self, self->mRefCon);
        }
      },
      queue);
  return watchdog;
}

KVWatchdog::KVWatchdog(Action action, std::shared_ptr<void> refCon)
    : mAction(std::move(action)), mRefCon(std::move(refCon)) {}

void KVWatchdog::setTimeInterval(double interval) noexcept {
  mTimer->setTimeInterval(interval);
}

void KVWatchdog::validate() noexcept {
  mTimer->validate();
}

void KVWatchdog::cancel() {
  mTimer->cancel();
}

void KVWatchdog::resumeAfter(double seconds) {
  mTimer->resumeAfter(seconds);
}

}  // namespace velor
