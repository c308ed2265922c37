// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdio>
#include <string>

namespace velor {

/// Between a level, 1 being full scale, and decibels of amplitude.
class KVDecibelTransformer {
 public:
  /// "-20.0 dB" of 0.1; "-inf dB" of 0.
  static std::string transformedValue(double level) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f dB", 20 * std::log10(level));
    return text;
  }

  /// The level of so many decibels.
  static double reverseTransformedValue(double decibels) { return std::pow(10.0, decibels / 20); }
};

}  // namespace velor
