// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace velor::store {

/// Base64 with padding and no line breaks (RFC 4648, section 4).
std::string base64Encoded(std::span<const std::uint8_t> bytes);

/// None for a text that `base64Encoded` cannot return: with other characters, a length
/// that is not a multiple of 4, padding elsewhere, or bits set after the end.
std::optional<std::vector<std::uint8_t>> base64Decoded(std::string_view text);

}  // namespace velor::store
