// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace velor {

/// The source of KVRandom; a test installs its own and restores the system's.
using KVRandomSource = std::uint32_t (*)() noexcept;

inline std::atomic<KVRandomSource>& KVCurrentRandomSource() noexcept {
  static std::atomic<KVRandomSource> source{
      []() noexcept -> std::uint32_t { return arc4random(); }};
  return source;
}

/// 32 random bits, from the system's generator, which nobody can foretell. Any
/// thread. Realtime-safe: no, the generator may ask the kernel.
inline std::uint32_t KVRandom() noexcept {
  return KVCurrentRandomSource().load(std::memory_order_relaxed)();
}

}  // namespace velor
