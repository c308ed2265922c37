// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace velor::store {

/// Text of others (names, documents, the network) for a line that people read. Control
/// characters, U+0080 to U+009F among them, cannot move a terminal or break the line. Other
/// bytes stay as they are, and valid UTF-8 stays so. Any thread. Realtime-safe: no.

/// With '?' for each control character; at most `maxBytes` of the text, whole characters,
/// and "..." where it is cut.
std::string printable(std::string_view text, std::size_t maxBytes = std::string_view::npos);

/// With "\n", "\x1b" and so on for the control characters.
std::string escaped(std::string_view text);

}  // namespace velor::store
