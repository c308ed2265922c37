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

/// Keeps one observer registered; when the last copy goes, the observer is
/// removed. It may outlive what is observed.
using KVObserverToken = std::shared_ptr<const void>;

/// Observers by name. They are called on the thread that tells, in the order of
/// their registration, with no lock held: an observer may tell, register and
/// remove, itself included.
///
/// A removed observer is not called again, unless another thread was about to
/// call it already: what an observer captures must bear that.
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
  void tell(std::string_view name, const Argument& argument) const {
    for (const std::weak_ptr<const Entry>& weak : entriesNow()) {
      // One at a time, so that removal holds for those whose turn is to come.
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
