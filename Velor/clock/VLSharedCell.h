// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <utility>

namespace velor {

/// Holds the latest std::shared_ptr or std::weak_ptr, for any number of readers
/// and writers. Realtime-safe: no.
template <class Pointer>
class VLSharedCell {
 public:
  void store(Pointer pointer) { mPointer.store(std::move(pointer)); }

  Pointer load() const {
    // An exchange that fails hands out what is there, and one that succeeds puts
    // null for null. It stands for `load` because that one, in libstdc++ up to 12,
    // does not order its read before the next write (GCC bug 101761).
    Pointer present;
    mPointer.compare_exchange_strong(present, Pointer{});
    return present;
  }

 private:
  mutable std::atomic<Pointer> mPointer;
};

}  // namespace velor
