// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace velor {

/// A set of indexes as people read it, "0-2 7": single indexes and ranges in rising
/// order, with blanks between them.
struct IndexSetString {
  static std::string fromIndexes(const std::set<std::size_t>& indexes);
  /// Those below `limit` of such a text. None of them for a text that is not one.
  static std::set<std::size_t> indexesOf(std::string_view text, std::size_t limit);
};

}  // namespace velor
