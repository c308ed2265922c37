// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace velor::oscpkt {

/// The longest path that a pattern can be matched with; the program's longest has 21
/// characters.
inline constexpr std::size_t kLongestOscPath = 63;

/// The offset of the first character of a pattern that stands for more than itself; the
/// pattern's size when there is none. Most addresses that are received are plain.
std::size_t findOscWildcard(std::string_view pattern);

/// Matches an address pattern (OSC 1.0, and the "//" of OSC 1.1, which stands for any
/// levels between) with a path of the program, which holds no wildcards and is no longer
/// than kLongestOscPath. `wildcard` is what findOscWildcard gives for the pattern. The result is
/// how far into the pattern the path leads, as an offset:
///
/// - the pattern's size when all of the pattern stands for all of the path;
/// - less when the path ends inside the pattern, or when a set or a list of alternatives
///   fits nothing where it stands: then the offset of the first character that was not
///   matched, of the "[" or the "{";
/// - none when the two differ elsewhere, or the pattern ends inside the path.
///
/// Of all ways that stars and double slashes leave open it is the one that leads
/// furthest. Of a list's alternatives the first that fits is taken for good, though a
/// later one might lead further. A "?" also stands for a slash, a star for none.
///
/// The time grows with the pattern's size alone, however stars and slashes multiply. Any
/// thread. Realtime-safe: yes, but a pattern of a datagram's size takes tenths of a
/// millisecond.
std::optional<std::size_t> matchOscPattern(std::string_view pattern, std::size_t wildcard,
                                           std::string_view path);

}  // namespace velor::oscpkt
