// SPDX-License-Identifier: MIT
#include "platform/store/KeyedPath.h"

namespace velor::store {
namespace {

constexpr std::size_t kKeyBytesShown = 64;

// True for the second and later bytes of a character in UTF-8.
bool continuesCharacter(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

std::string printable(std::string_view text, std::size_t maxBytes) {
  const bool isCut = text.size() > maxBytes;
  if (isCut) {
    std::size_t end = maxBytes;
    while (end > 0 && continuesCharacter(text[end])) {
      --end;
    }
    text = text.substr(0, end);
  }
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += byte < 0x20 || byte == 0x7F ? '?' : c;
  }
  return isCut ? result + "..." : result;
}

std::string KeyedPath::text() const {
  if (mSteps.empty()) {
    return "the document";
  }
  std::string result;
  for (const Step& step : mSteps) {
    if (const auto* index = std::get_if<std::size_t>(&step)) {
      result += "[" + std::to_string(*index) + "]";
    } else {
      result += result.empty() ? "" : ".";
      result += printable(std::get<std::string>(step), kKeyBytesShown);
    }
  }
  return result;
}

}  // namespace velor::store
