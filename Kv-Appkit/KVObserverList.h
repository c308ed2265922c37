// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velor {

/// Keeps one observer registered; the end of the last copy removes the observer.
/// It may outlive the observed object.
using KVObserverToken = std::shared_ptr<const void>;

/// Observers by name. They are called on the thread that notifies, in the order of
/// their registration, with no lock held: an observer may notify, register and
/// remove, itself included.
///
/// A removed observer is not called again, unless another thread was about to
/// call it already: whatever it captures must allow for that.
template <class Argument>
class KVObserverList {
 public:
  using Observer = std::function<void(const Argument&)>;

  /// Any thread. Realtime-safe: no.
  [[nodiscard]] KVObserverToken add(std::string_view name, Observer observer) {
    auto entry = std::make_shared<const Entry>(Entry{std::string(name), std::move(observer)});
    const std::lock_guard lock(mMutex);
    std::erase_if(mEntries, [](const auto& other) { return other.expired(); });
    mEntries.push_back(entry);
    return entry;
  }

  /// Calls those that were registered for the name when this began and have not
  /// been removed by their turn. Any thread. Realtime-safe: no.
  void notify(std::string_view name, const Argument& argument) const {
    for (const std::weak_ptr<const Entry>& weak : entriesNow()) {
      // One at a time, so that an observer that is removed meanwhile is not called.
      if (const auto entry = weak.lock(); entry != nullptr && entry->name == name) {
        entry->observer(argument);
      }
    }
  }

 private:
  struct Entry {
    std::string name;
    Observer observer;
  };

  std::vector<std::weak_ptr<const Entry>> entriesNow() const {
    const std::lock_guard lock(mMutex);
    return mEntries;
  }

  mutable std::mutex mMutex;
  std::vector<std::weak_ptr<const Entry>> mEntries;  // under mMutex; the tokens own them
};

}  // namespace velor
