// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

/// Words that the texts of reports share.
struct VLAnalysisWords {
  /// A text as printf makes it, cut after 319 characters.
  template <class... Values>
  static std::string of(const char* format, Values... values) {
    std::array<char, 320> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
  }

  static std::string time(const SMPTETime& time) {
    std::array<char, kLTCStringSize> text{};
    ltc_format_string(time, text.data());
    return text.data();
  }

  static std::string userBits(const std::array<std::uint8_t, kLTCUserBytes>& bits) {
    return of("%02x%02x%02x%02x", bits[3], bits[2], bits[1], bits[0]);
  }

  /// The value as it is printed with so many decimals, which is 0 and not -0 near 0.
  static double rounded(double value, int decimals) {
    const double scale = std::pow(10, decimals);
    return std::round(value * scale) / scale + 0.0;
  }

  /// 20 times the logarithm of a part of full scale; at least -120.
  static double decibels(double level) { return 20 * std::log10(std::max(level, 1e-6)); }
};

}  // namespace velor
