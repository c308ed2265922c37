// SPDX-License-Identifier: MIT
#include "platform/store/Base64.h"

namespace velor::store {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string base64Encoded(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    const std::size_t count = bytes.size() - at < 3 ? bytes.size() - at : 3;
    std::uint32_t group = 0;
    for (std::size_t i = 0; i < 3; ++i) {
      group = group << 8 | (i < count ? bytes[at + i] : 0U);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= count ? kDigits[group >> (18 - 6 * i) & 0x3F] : '=';
    }
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> base64Decoded(std::string_view text) {
  if (text.size() % 4 != 0) {
    return std::nullopt;
  }
  std::size_t padding = 0;
  while (padding < 2 && !text.empty() && text.back() == '=') {
    text.remove_suffix(1);
    ++padding;
  }
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size() / 4 * 3 + 2);
  std::uint32_t pending = 0;
  unsigned bits = 0;
  for (const char c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == std::string_view::npos) {
      return std::nullopt;
    }
    pending = (pending << 6 | static_cast<std::uint32_t>(digit)) & 0xFFFF;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<std::uint8_t>(pending >> bits & 0xFF));
    }
  }
  if ((pending & ((1U << bits) - 1)) != 0) {
    return std::nullopt;
  }
  return bytes;
}

}  // namespace velor::store
