// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {

// SMPTE ST 12-1, bit for bit: units (small) and tens (capital) of frames, seconds, minutes
// and hours, user groups 1 to 8, the drop flag and the parity; the others stand as they
// are. The lowest bit of each comes first.
inline constexpr std::string_view kPublishedLTC =
    "ffff1111FFD02222"
    "ssss3333SSSP4444"
    "mmmm5555MMM06666"
    "hhhh7777HH008888"
    "0011111111111101";
static_assert(kPublishedLTC.size() == 80);
inline constexpr std::size_t kPublishedSyncBegin = 64;

using PublishedBits = std::array<std::uint8_t, 80>;
using PublishedUserBytes = std::array<std::uint8_t, 4>;

/// The frame by the layout. The text of a time has its digits already apart.
inline PublishedBits publishedLTC(const SMPTETime& time, const PublishedUserBytes& user) {
  std::array<char, kLTCStringSize> text{};
  ltc_format_string(time, text.data());
  const std::string_view order = "HhXMmXSsXFf";  // of "hh:mm:ss:ff"
  std::array<unsigned, 128> values{};
  for (std::size_t i = 0; i < order.size(); ++i) {
    values[static_cast<unsigned char>(order[i])] = static_cast<unsigned>(text[i] - '0');
  }
  values['D'] = text[8] == ';';
  for (unsigned group = 0; group < 8; ++group) {
    const unsigned byte = user[group / 2];
    values['1' + group] = group % 2 == 0 ? byte % 16 : byte / 16;
  }
  std::array<unsigned, 128> taken{};
  PublishedBits bits{};
  unsigned ones = 0;
  for (std::size_t i = 0; i < bits.size(); ++i) {
    const auto symbol = static_cast<unsigned char>(kPublishedLTC[i]);
    const bool constant = i >= kPublishedSyncBegin || symbol == '0';
    bits[i] =
        static_cast<std::uint8_t>(constant ? symbol - '0' : values[symbol] >> taken[symbol]++ & 1U);
    ones += bits[i];
  }
  bits[kPublishedLTC.find('P')] = ones % 2;
  return bits;
}

inline std::string publishedText(const PublishedBits& bits) {
  std::string text;
  for (const std::uint8_t bit : bits) {
    text += static_cast<char>('0' + bit);
  }
  return text;
}

}  // namespace velor
