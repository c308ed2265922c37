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

/// None for what `base64Encoded` gives for no bytes at all: other characters, a
/// length that is no multiple of 4, padding elsewhere, bits set behind the end.
std::optional<std::vector<std::uint8_t>> base64Decoded(std::string_view text);

}  // namespace velor::store
