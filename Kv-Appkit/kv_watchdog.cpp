// SPDX-License-Identifier: MIT
#include "Kv-Appkit/kv_watchdog.h"

#include <memory>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVWatchdogTimer.h"

namespace velor {

struct kv_watchdog {
  kv_watchdog_action action;
  void* refCon = nullptr;
  std::shared_ptr<KVWatchdogTimer> timer;
  // The owner's reference, which dispose gives up; an action under way has another.
  std::shared_ptr<kv_watchdog> self;
};

std::int32_t kv_watchdog_create(kv_watchdog** watchdog, kv_watchdog_action action,
                                host::Queue* queue, void* refCon, double seconds) {
  if (watchdog == nullptr || !(seconds > 0) || !action || queue == nullptr) {
    return kv_watchdog_paramErr;
  }
  const auto record = std::make_shared<kv_watchdog>();
  record->action = std::move(action);
  record->refCon = refCon;
  record->timer = KVWatchdogTimer::make(
      seconds,
      [weak = std::weak_ptr<kv_watchdog>(record)] {
        if (const auto strong = weak.lock()) {
          strong->action(strong.get(), strong->refCon);
        }
      },
      *queue);
  record->self = record;
  *watchdog = record.get();
  return 0;
}

std::int32_t kv_watchdog_set_timeinterval(kv_watchdog* watchdog, double seconds) noexcept {
  KV_ASSERT(watchdog && "watchdog must not be NULL");
  if (!(seconds > 0)) {
    return kv_watchdog_paramErr;
  }
  watchdog->timer->setTimeInterval(seconds);
  return 0;
}

std::int32_t kv_watchdog_validate(kv_watchdog* watchdog) noexcept {
  KV_ASSERT(watchdog && "watchdog must not be NULL");
  watchdog->timer->validate();
  return 0;
}

std::int32_t kv_watchdog_cancel(kv_watchdog* watchdog) {
  KV_ASSERT(watchdog && "watchdog must not be NULL");
  watchdog->timer->cancel();
  return 0;
}

std::int32_t kv_watchdog_resume_after(kv_watchdog* watchdog, double seconds) {
  KV_ASSERT(watchdog && "watchdog must not be NULL");
  if (!(seconds > 0)) {
    return kv_watchdog_paramErr;
  }
  watchdog->timer->resumeAfter(seconds);
  return 0;
}

std::int32_t kv_watchdog_dispose(kv_watchdog* watchdog) {
  if (watchdog == nullptr) {
    return kv_watchdog_paramErr;
  }
  kv_watchdog_cancel(watchdog);
  const auto last = std::move(watchdog->self);
  return 0;
}

}  // namespace velor
