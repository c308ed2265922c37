// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <string_view>

#include "Kv-Appkit/KVObserverList.h"

namespace velor {

/// A row of a class's table of derived properties: a change of `dependsOn` is a
/// change of `property` too.
struct KVDependency {
  std::string_view property;
  std::string_view dependsOn;
};

/// An object whose properties can be observed. A class gives its table of
/// dependencies, a constexpr array, to the constructor; the table may hold
/// cycles, and is followed to the end.
///
/// A pair of will and did around a change announces it. The did calls the observers of
/// the key, on its thread, and then those of every property that depends on the key,
/// each once.
class KVObservable {
 public:
  /// Called with the key that it observes.
  using Observer = std::function<void(const std::string_view& key)>;

  KVObservable(const KVObservable&) = delete;
  KVObservable& operator=(const KVObservable&) = delete;

  /// The token keeps the observer. Any thread. Realtime-safe: no.
  [[nodiscard]] KVObserverToken addObserver(std::string_view key, Observer observer);

  /// Any thread. Realtime-safe: no. Calls no observers.
  void willChangeValueForKey(std::string_view key);

  /// Any thread, not only the one of the will. Realtime-safe: no. Without a will before
  /// it, it calls no observers; pairs may be nested, and each did calls them.
  void didChangeValueForKey(std::string_view key);

 protected:
  explicit KVObservable(std::span<const KVDependency> dependencies = {})
      : mDependencies(dependencies) {}
  ~KVObservable() = default;

 private:
  bool takeWill(std::string_view key);

  const std::span<const KVDependency> mDependencies;
  KVObserverList<std::string_view> mObservers;
  std::mutex mMutex;
  std::map<std::string, unsigned, std::less<>> mWills;  // under mMutex; those still open
};

}  // namespace velor
