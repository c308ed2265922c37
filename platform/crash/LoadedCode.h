// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace velor::crash {

/// Where an address of code lies in the program or a library. The texts stay valid while
/// that is loaded.
struct LoadedCode {
  const char* file = nullptr;      ///< empty for the program; null when nothing holds the address
  std::uintptr_t offset = 0;       ///< in the file, as addr2line wants it
  const char* function = nullptr;  ///< as the linker names it; null when it is not exported
  std::uintptr_t functionOffset = 0;

  /// Async-signal-safe: it takes no lock, which a thread that crashed may hold.
  static LoadedCode at(std::uintptr_t address) noexcept;
};

}  // namespace velor::crash
