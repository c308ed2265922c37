// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace velor {

/// "0-2 7": single indexes and ranges in rising order, with blanks between them.
std::string stringFromIndexSet(const std::set<std::size_t>& indexes);

/// Those below `limit` of such a text. None of them for a text that is not one.
std::set<std::size_t> indexSetFromString(std::string_view text, std::size_t limit);

}  // namespace velor
