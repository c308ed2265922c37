// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <type_traits>

namespace velor::host {

/// The latest value of a plain record for one reader that must not wait, such as an
/// audio cycle: neither side waits for the other, however long the other is
/// preempted. Writers exclude each other, and so do readers. It holds one value, so
/// it is never full: a new value replaces one that was not read.
template <class T>
class LatestValue {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  explicit LatestValue(const T& value = {}) noexcept { mSlots.fill(value); }

  /// Realtime-safe: yes.
  void store(const T& value) noexcept {
    mSlots[mBack] = value;
    mBack = mMiddle.exchange(mBack | kFresh, std::memory_order_acq_rel) & ~kFresh;
  }

  /// Valid until the reader's next call. Realtime-safe: yes.
  const T& load() noexcept {
    if ((mMiddle.load(std::memory_order_relaxed) & kFresh) != 0) {
      mFront = mMiddle.exchange(mFront, std::memory_order_acq_rel) & ~kFresh;
    }
    return mSlots[mFront];
  }

 private:
  static constexpr std::uint32_t kFresh = 4;

  // One slot is the writer's, one the reader's, and one lies between them.
  std::array<T, 3> mSlots;
  std::uint32_t mBack = 0;
  std::atomic<std::uint32_t> mMiddle{1};
  std::uint32_t mFront = 2;
};

}  // namespace velor::host
