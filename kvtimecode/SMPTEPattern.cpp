// SPDX-License-Identifier: MIT
#include "kvtimecode/SMPTEPattern.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace velor {
namespace {

constexpr char kAnyCharacter = '.';

bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

std::size_t digitsEnd(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && isDigit(text[at])) {
    ++at;
  }
  return at;
}

std::int32_t valueOf(std::string_view digits) noexcept {
  constexpr std::int64_t kHighest = std::numeric_limits<std::int32_t>::max();
  std::int64_t value = 0;
  for (const char digit : digits) {
    value = std::min(value * 10 + (digit - '0'), kHighest);
  }
  return static_cast<std::int32_t>(value);
}

// Bytes of the character at the place; 0 at the end of a line or of the text. Bytes that
// are not UTF-8 count one by one.
std::size_t characterLength(std::string_view text, std::size_t at) noexcept {
  if (at >= text.size() || text[at] == '\n' || text[at] == '\r') {
    return 0;
  }
  const auto lead = static_cast<unsigned char>(text[at]);
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
  for (std::size_t i = 1; i < length; ++i) {
    if (at + i >= text.size() || (static_cast<unsigned char>(text[at + i]) & 0xC0U) != 0x80) {
      return 1;
    }
  }
  return length;
}

std::size_t dividerLength(std::string_view text, std::size_t at, char divider) noexcept {
  if (divider == kAnyCharacter) {
    return characterLength(text, at);
  }
  return at < text.size() && text[at] == divider ? 1 : 0;
}

// A match that begins with the run of digits at `begin`.
std::optional<SMPTEPatternDigits> matchAt(std::string_view text, std::size_t begin,
                                          char divider) noexcept {
  SMPTEPatternDigits groups{};
  std::size_t end = digitsEnd(text, begin);
  for (std::size_t group = 0; group < 2; ++group) {
    if (end == begin || end == text.size() || text[end] != ':') {
      return std::nullopt;
    }
    groups[group] = valueOf(text.substr(begin, end - begin));
    begin = end + 1;
    end = digitsEnd(text, begin);
  }
  if (end == begin) {
    return std::nullopt;
  }
  const std::size_t length = dividerLength(text, end, divider);
  const std::size_t frames = end + length;
  const std::size_t framesEnd = digitsEnd(text, frames);
  if (length != 0 && framesEnd != frames) {
    groups[2] = valueOf(text.substr(begin, end - begin));
    groups[3] = valueOf(text.substr(frames, framesEnd - frames));
    return groups;
  }
  // Any character can be a digit too, if another digit follows it.
  if (divider == kAnyCharacter && end - begin >= 3) {
    groups[2] = valueOf(text.substr(begin, end - begin - 2));
    groups[3] = valueOf(text.substr(end - 1, 1));
    return groups;
  }
  return std::nullopt;
}

}  // namespace

std::optional<SMPTEPatternDigits> matchSMPTEPattern(std::string_view text, char divider) noexcept {
  // A match takes whole runs of digits, so that only their beginnings are tried.
  for (std::size_t at = 0; at < text.size(); at = std::max(at + 1, digitsEnd(text, at))) {
    if (isDigit(text[at])) {
      if (const auto groups = matchAt(text, at, divider)) {
        return groups;
      }
    }
  }
  return std::nullopt;
}

}  // namespace velor
