// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <cstdlib>

namespace velor::oscpkt {

/// A programming error, never one of the bytes read: the process ends, with the
/// condition's text and the function on stderr.
inline void OscAssert(bool condition, const char* text, const char* function) noexcept {
  if (!condition) {
    std::fprintf(stderr, "assertion failed: %s, in %s\n", text, function);
    std::abort();
  }
}

}  // namespace velor::oscpkt
