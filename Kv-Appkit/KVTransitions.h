// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>

// For a state machine written as a table: rows with the members `from`, `event`, `to`
// and the data of the transition.
namespace velor {

/// For a static_assert on each table: one state and one event lead to one place.
template <class Row, std::size_t kRows>
constexpr bool KVNoPairRepeats(const std::array<Row, kRows>& table) {
  for (std::size_t i = 0; i < kRows; ++i) {
    for (std::size_t j = 0; j < i; ++j) {
      if (table[i].from == table[j].from && table[i].event == table[j].event) {
        return false;
      }
    }
  }
  return true;
}

/// The row for the pair, or null. Realtime-safe: yes.
template <class Row, std::size_t kRows>
constexpr const Row* KVTransitionFor(const std::array<Row, kRows>& table, decltype(Row::from) from,
                                     decltype(Row::event) event) noexcept {
  for (const Row& row : table) {
    if (row.from == from && row.event == event) {
      return &row;
    }
  }
  return nullptr;
}

}  // namespace velor
