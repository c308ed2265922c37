// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVNotificationCenter.h"

#include <utility>

#include "Kv-Appkit/KVShared.h"
#include "platform/host/Host.h"

namespace velor {

KVNotificationCenter::KVNotificationCenter() : mObservers(std::make_shared<Observers>()) {}

KVNotificationCenter& KVNotificationCenter::defaultCenter() {
  return KVShared<KVNotificationCenter>::instance();
}

KVObserverToken KVNotificationCenter::addObserver(std::string_view name, Observer observer) {
  return mObservers->add(name, std::move(observer));
}

void KVNotificationCenter::post(std::string name, std::any object) {
  const KVNotification notification{std::move(name), std::move(object)};
  // An observer may end the center.
  const auto observers = mObservers;
  observers->notify(notification.name, notification);
}

void KVNotificationCenter::postOnMainQueue(std::string name, std::any object) {
  host::current().mainQueue().async(
      [weak = std::weak_ptr<Observers>(mObservers),
       notification = KVNotification{std::move(name), std::move(object)}] {
        if (const auto observers = weak.lock()) {
          observers->notify(notification.name, notification);
        }
      });
}

}  // namespace velor
