// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor {

/// Standard error of a program that has begun its work.
struct VLStandardError {
  /// Writes a line, "velor: " and the text, without waiting: a terminal that is held
  /// (Ctrl-S, a connection that hangs) must not hold the main queue.
  static void tell(const std::string& text);
};

}  // namespace velor
