// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Kv-Appkit/KVObserverList.h"

namespace velor {

/// An event for all its observers. The name decides what `object` is: a number or any
/// other value.
struct KVNotification {
  std::string name;
  std::any object;
};

/// Delivers notifications from posters to observers that do not know each other.
class KVNotificationCenter {
 public:
  using Observer = std::function<void(const KVNotification&)>;

  KVNotificationCenter();

  /// The center of the process; ended by KVSharedInstances::clear. The first
  /// call is the main thread's.
  static KVNotificationCenter& defaultCenter();

  /// The token keeps the observer. Any thread. Realtime-safe: no.
  [[nodiscard]] KVObserverToken addObserver(std::string_view name, Observer observer);

  /// Calls the observers of the name here and now. Any thread. Realtime-safe: no.
  void post(std::string name, std::any object = {});

  /// Returns at once; the observers are called on the main queue of the current host.
  /// Any thread. Realtime-safe: no.
  void postOnMainQueue(std::string name, std::any object = {});

 private:
  using Observers = KVObserverList<KVNotification>;
  // Shared, so that a job on the main queue can see that the center has ended.
  const std::shared_ptr<Observers> mObservers;
};

}  // namespace velor
