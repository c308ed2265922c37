// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Kv-Appkit/KVObserverList.h"

namespace velor {

/// What has happened, to whom it may concern: `object` is whatever the name says
/// that it is, a number or any other value.
struct KVNotification {
  std::string name;
  std::any object;
};

/// Brings notifications from posters to observers that do not know each other.
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

  /// Returns at once; the observers are called on the main queue of the host in
  /// force. Any thread. Realtime-safe: no.
  void postOnMainQueue(std::string name, std::any object = {});

 private:
  using Observers = KVObserverList<KVNotification>;
  // Shared, so that what waits on the main queue can see that the center has gone.
  const std::shared_ptr<Observers> mObservers;
};

}  // namespace velor
