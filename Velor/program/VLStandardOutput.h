// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>

namespace velor {

/// Standard output of a program that ends with what it has printed.
struct VLStandardOutput {
  /// Whether it has taken all of that, which is only known at the end: a full disk, a
  /// reader that has gone.
  static bool hasTaken() { return std::fflush(stdout) == 0 && std::ferror(stdout) == 0; }
  static constexpr const char* kRefusal = "cannot write to standard output";
  /// The exit status: the given one, or 1 with a message if the output was not written.
  static int end(int status) {
    if (hasTaken()) {
      return status;
    }
    std::fprintf(stderr, "velor: %s\n", kRefusal);
    return 1;
  }
};

}  // namespace velor
