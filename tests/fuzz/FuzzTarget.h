// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// A finding ends the program.
inline void require(bool condition, const char* what) {
  if (!condition) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}
