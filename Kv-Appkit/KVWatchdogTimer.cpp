// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVWatchdogTimer.h"

#include <utility>

#include "Kv-Appkit/KVNanosecondsFromSeconds.h"

namespace velor {

std::shared_ptr<KVWatchdogTimer> KVWatchdogTimer::make(double seconds, std::function<void()> action,
                                                       host::Queue& queue) {
  const std::shared_ptr<KVWatchdogTimer> timer(new KVWatchdogTimer(std::move(action)));
  // The host's timer keeps its handler until it next checks it, under its own lock, so the
  // handler may hold only a weak reference.
  timer->mTimer.emplace(queue, [weak = timer->weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->fire();
    }
  });
  timer->setTimeInterval(seconds);
  return timer;
}

KVWatchdogTimer::KVWatchdogTimer(std::function<void()> action)
    : mHost(host::current()), mAction(std::move(action)) {}

void KVWatchdogTimer::setTimeInterval(double seconds) noexcept {
  mInterval.store(KVNanosecondsFromSeconds(seconds));
  mTimer->setDeadline(mHost.AudioGetCurrentHostTime());
}

void KVWatchdogTimer::validate() noexcept {
  mTimer->setDeadline(mHost.AudioGetCurrentHostTime() + mInterval.load());
}

void KVWatchdogTimer::cancel() {
  mTimer->cancel();
}

void KVWatchdogTimer::resumeAfter(double seconds) {
  mHost.mainQueue().after(KVNanosecondsFromSeconds(seconds), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->mTimer->resume();
    }
  });
}

void KVWatchdogTimer::fire() {
  mTimer->cancel();
  mAction();
}

}  // namespace velor
