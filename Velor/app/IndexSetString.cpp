// SPDX-License-Identifier: MIT
#include "Velor/app/IndexSetString.h"

#include <algorithm>
#include <charconv>

namespace velor {
namespace {

// Takes a number off the front of the text; false when there is none.
bool takeNumber(std::string_view& text, std::size_t& number) {
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc()) {
    return false;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return true;
}

bool take(std::string_view& text, char c) {
  if (!text.starts_with(c)) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

}  // namespace

std::string IndexSetString::fromIndexes(const std::set<std::size_t>& indexes) {
  std::string text;
  for (auto first = indexes.begin(); first != indexes.end();) {
    auto last = first;
    auto next = std::next(first);
    while (next != indexes.end() && *next == *last + 1) {
      last = next++;
    }
    text += (text.empty() ? "" : " ") + std::to_string(*first);
    if (last != first) {
      text += "-" + std::to_string(*last);
    }
    first = next;
  }
  return text;
}

std::set<std::size_t> IndexSetString::indexesOf(std::string_view text, std::size_t limit) {
  std::set<std::size_t> indexes;
  while (!text.empty()) {
    std::size_t first = 0;
    if (!takeNumber(text, first)) {
      return {};
    }
    std::size_t last = first;
    if ((take(text, '-') && !takeNumber(text, last)) || last < first ||
        (!text.empty() && !take(text, ' '))) {
      return {};
    }
    for (std::size_t i = first; i <= last && i < limit; ++i) {
      indexes.insert(indexes.end(), i);
    }
  }
  return indexes;
}

}  // namespace velor
