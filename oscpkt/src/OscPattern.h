// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velor::oscpkt {

/// The longest path that a pattern can be matched with; the program's longest has 21
/// characters.
inline constexpr std::size_t kLongestOscPath = 63;

/// The offset of the first wildcard in a pattern, or the pattern's size. Most received
/// addresses have none.
std::size_t findOscWildcard(std::string_view pattern);

/// Matches an address pattern (OSC 1.0, and "//" of OSC 1.1 for any number of levels) with a
/// path of the program, which holds no wildcards and is no longer
/// than kLongestOscPath. `wildcard` is what findOscWildcard gives for the pattern. The result is
/// how far into the pattern the path leads, as an offset:
///
/// - the pattern's size when the whole pattern matches the whole path;
/// - less when the path ends inside the pattern: the offset of the first unmatched character;
/// - less when a set or a list does not match: the offset of its "[" or "{";
/// - none when the two differ elsewhere, or the pattern ends inside the path.
///
/// Of all ways to match stars and double slashes, the one that leads furthest counts. Of a
/// list's alternatives the first match counts, even if a later one would lead further. "?"
/// matches a slash; "*" does not.
///
/// The time grows with the pattern's size alone, however stars and slashes multiply. Any
/// thread. Realtime-safe: yes, but a pattern of a datagram's size takes tenths of a
/// millisecond.
std::optional<std::size_t> matchOscPattern(std::string_view pattern, std::size_t wildcard,
                                           std::string_view path);

}  // namespace velor::oscpkt
