// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace velor {

/// A four-character code: its bytes spell the text from the most significant
/// byte down.
constexpr std::uint32_t KVFourCC(const char (&text)[5]) noexcept {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code = code << 8 | static_cast<unsigned char>(text[i]);
  }
  return code;
}

/// The four characters of a code, "noErr" for 0. A byte that cannot be printed
/// reads as '.', so that any status can stand in a log line.
inline std::string stringFromFourCC(std::uint32_t code) {
  if (code == 0) {
    return "noErr";
  }
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>(code >> shift & 0xFF);
    text += c >= ' ' && c <= '~' ? c : '.';
  }
  return text;
}

}  // namespace velor
