// SPDX-License-Identifier: MIT
#include "platform/store/Printable.h"

#include <algorithm>
#include <cstdio>

namespace velor::store {
namespace {

unsigned char byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// Bytes of the control character there; 0 for another one.
std::size_t controlBytes(std::string_view text, std::size_t at) {
  const unsigned char byte = byteAt(text, at);
  if (byte == 0xC2 && (byteAt(text, at + 1) & 0xE0U) == 0x80U) {
    return 2;  // U+0080 to U+009F: terminals take some of them for commands
  }
  return byte < 0x20 || byte == 0x7F ? 1 : 0;
}

template <class Replacement>
std::string withoutControls(std::string_view text, const Replacement& replacement) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t bytes = controlBytes(text, i);
    if (bytes == 0) {
      result += text[i];
    } else {
      result += replacement(byteAt(text, i + bytes - 1));
    }
    i += std::max<std::size_t>(bytes, 1);
  }
  return result;
}

}  // namespace

std::string printable(std::string_view text, std::size_t maxBytes) {
  const auto question = [](unsigned char) { return '?'; };
  if (text.size() <= maxBytes) {
    return withoutControls(text, question);
  }
  std::size_t end = maxBytes;
  while (end > 0 && (byteAt(text, end) & 0xC0U) == 0x80U) {  // within a character of UTF-8
    --end;
  }
  return withoutControls(text.substr(0, end), question) + "...";
}

std::string escaped(std::string_view text) {
  return withoutControls(text, [](unsigned char control) -> std::string {
    switch (control) {
      case '\n':
        return "\\n";
      case '\r':
        return "\\r";
      case '\t':
        return "\\t";
      default:
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02x", control);
        return code;
    }
  });
}

}  // namespace velor::store
