// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <vector>

namespace velor {

/// All instances of KVShared, in the order of their creation.
class KVSharedInstances {
 public:
  /// Destroys them, the youngest first, since a younger one may use an older one.
  /// For the end of main and of a test: nothing else may use them meanwhile, and
  /// the host must still exist.
  static void clear() {
    while (!ends().empty()) {
      void (*const end)() = ends().back();
      ends().pop_back();
      end();
    }
  }

 private:
  template <class T>
  friend class KVShared;

  static std::vector<void (*)()>& ends() {
    static std::vector<void (*)()> list;
    return list;
  }
};

/// The one instance of T in the process, made on first use. T needs a default
/// constructor, which may be private with KVShared<T> as a friend.
template <class T>
class KVShared {
 public:
  /// Any thread once it exists. Its creation is not locked: the main thread makes the
  /// first call, during start-up. While an instance is being destroyed, this still
  /// returns it.
  static T& instance() {
    T* existing = sInstance.load(std::memory_order_acquire);
    if (existing == nullptr) {
      existing = new T;
      // After its constructor, so that instances made there count as older.
      KVSharedInstances::ends().push_back(&end);
      sInstance.store(existing, std::memory_order_release);
    }
    return *existing;
  }

 private:
  static void end() {
    delete sInstance.load(std::memory_order_acquire);
    sInstance.store(nullptr, std::memory_order_release);
  }

  inline static std::atomic<T*> sInstance{nullptr};
};

}  // namespace velor
