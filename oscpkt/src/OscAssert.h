// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace velor::oscpkt {

/// Stops the program on a programming error, with condition and function on stderr. Received
/// bytes never cause one.
inline void OscAssert(bool condition, const char* text, const char* function) noexcept {
  if (!condition) {
    std::fprintf(stderr, "assertion failed: %s, in %s\n", text, function);
    std::abort();
  }
}

}  // namespace velor::oscpkt
