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
/// A change is announced by a pair of will and did around it. The observers of
/// the key are told at the did, on its thread, and then those of every property
/// that depends on it, each once.
class KVObservable {
 public:
  /// Gets the key that it observes.
  using Observer = std::function<void(const std::string_view& key)>;

  KVObservable(const KVObservable&) = delete;
  KVObservable& operator=(const KVObservable&) = delete;

  /// The token keeps the observer. Any thread. Realtime-safe: no.
  [[nodiscard]] KVObserverToken addObserver(std::string_view key, Observer observer);

  /// Any thread. Realtime-safe: no. Tells nobody by itself.
  void willChangeValueForKey(std::string_view key);

  /// Any thread, not only that of the will. Realtime-safe: no. One without a
  /// will before it tells nobody; pairs may be nested, and each did tells.
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
