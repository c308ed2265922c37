// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace velor::host {

/// The latest value of a small plain record: one writer at a time, any number of
/// readers. A reader never sees half a record and never makes the writer wait; it
/// tries again while a write is under way. Holds one value, so it is never full.
template <class T>
class Seqlocked {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  Seqlocked() noexcept { store(T{}); }
  explicit Seqlocked(const T& value) noexcept { store(value); }

  /// Writers must exclude each other. Realtime-safe: yes.
  void store(const T& value) noexcept {
    Words words{};
    std::memcpy(words.data(), &value, sizeof value);
    const std::uint32_t sequence = mSequence.load(std::memory_order_relaxed);
    mSequence.store(sequence + 1, std::memory_order_relaxed);
    // Words are stored with release and loaded with acquire, so that a reader
    // who sees a new word also sees the odd sequence. (A fence would do too, but
    // ThreadSanitizer cannot follow one.)
    for (std::size_t i = 0; i < words.size(); ++i) {
      mWords[i].store(words[i], std::memory_order_release);
    }
    mSequence.store(sequence + 2, std::memory_order_release);
  }

  /// Any thread. Realtime-safe: yes, against a writer that is not preempted for long.
  T load() const noexcept {
    Words words{};
    std::uint32_t before = 0;
    std::uint32_t after = 0;
    do {
      before = mSequence.load(std::memory_order_acquire);
      for (std::size_t i = 0; i < words.size(); ++i) {
        words[i] = mWords[i].load(std::memory_order_acquire);
      }
      after = mSequence.load(std::memory_order_relaxed);
    } while (before != after || (before & 1U) != 0);
    T value;
    std::memcpy(static_cast<void*>(&value), words.data(), sizeof value);
    return value;
  }

 private:
  using Words = std::array<std::uint64_t, (sizeof(T) + 7) / 8>;
  std::atomic<std::uint32_t> mSequence{0};
  std::array<std::atomic<std::uint64_t>, (sizeof(T) + 7) / 8> mWords{};
};

}  // namespace velor::host
