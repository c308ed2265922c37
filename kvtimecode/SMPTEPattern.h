// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace velor {

/// Hours, minutes, seconds and frames as they stand in a text, of any size; a number
/// above 2^31 - 1 counts as that.
using SMPTEPatternDigits = std::array<std::int32_t, 4>;

/// The groups of the first match of (\d+):(\d+):(\d+)D(\d+) in the text, where D is the
/// divider: ':', ';', or '.' for any one character of UTF-8 but a line's end, as in a
/// regular expression. None without a match.
///
/// In step with the length of the text, whatever it holds, on a fixed stack.
std::optional<SMPTEPatternDigits> matchSMPTEPattern(std::string_view text, char divider) noexcept;

}  // namespace velor
