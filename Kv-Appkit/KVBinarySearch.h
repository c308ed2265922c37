// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <ranges>

// Searches in arrays that are sorted with respect to the question that is asked of
// their elements; the question is asked about log2 of their size times. None is
// null, or the index kBinarySearchNotFound.
//
// Any thread. Realtime-safe: as the question.
namespace velor {

inline constexpr std::int64_t kBinarySearchNotFound = std::numeric_limits<std::int64_t>::max();

/// A span, a vector.
template <class T>
concept KVBinarySearchArray = std::ranges::contiguous_range<T> && std::ranges::sized_range<T>;

/// Of pointers of any kind.
template <class T>
concept KVBinarySearchObjects =
    KVBinarySearchArray<T> && std::convertible_to<std::nullptr_t, std::ranges::range_value_t<T>>;

/// True from the front of the array up to some element and false behind it. The index
/// of the last for which it is true.
template <KVBinarySearchArray Array,
          std::predicate<std::ranges::range_reference_t<const Array>> Predicate>
std::int64_t findIndexOfLastItemMatchingBlock(const Array& array, Predicate&& matches) {
  const auto elements = std::ranges::data(array);
  const auto count = static_cast<std::int64_t>(std::ranges::size(array));
  if (count == 0 || !std::invoke(matches, elements[0])) {
    return kBinarySearchNotFound;
  }
  if (std::invoke(matches, elements[count - 1])) {
    return count - 1;
  }
  std::int64_t low = 0;           // matches
  std::int64_t high = count - 1;  // does not
  while (high - low > 1) {
    const std::int64_t middle = low + (high - low) / 2;
    (std::invoke(matches, elements[middle]) ? low : high) = middle;
  }
  return low;
}

/// False from the front of the array up to some element and true behind it. The index
/// of the first for which it is true.
template <KVBinarySearchArray Array,
          std::predicate<std::ranges::range_reference_t<const Array>> Predicate>
std::int64_t findIndexOfFirstItemMatchingBlock(const Array& array, Predicate&& matches) {
  const auto elements = std::ranges::data(array);
  const auto count = static_cast<std::int64_t>(std::ranges::size(array));
  if (count == 0 || !std::invoke(matches, elements[count - 1])) {
    return kBinarySearchNotFound;
  }
  if (std::invoke(matches, elements[0])) {
    return 0;
  }
  std::int64_t low = 0;           // does not match
  std::int64_t high = count - 1;  // matches
  while (high - low > 1) {
    const std::int64_t middle = low + (high - low) / 2;
    (std::invoke(matches, elements[middle]) ? high : low) = middle;
  }
  return high;
}

/// As findIndexOfLastItemMatchingBlock: the element.
template <KVBinarySearchObjects Array, class Predicate>
std::ranges::range_value_t<Array> findLastItemMatchingBlock(const Array& array,
                                                            Predicate&& matches) {
  const std::int64_t index = findIndexOfLastItemMatchingBlock(array, matches);
  return index != kBinarySearchNotFound ? std::ranges::data(array)[index] : nullptr;
}

/// As findIndexOfFirstItemMatchingBlock: the element.
template <KVBinarySearchObjects Array, class Predicate>
std::ranges::range_value_t<Array> findFirstItemMatchingBlock(const Array& array,
                                                             Predicate&& matches) {
  const std::int64_t index = findIndexOfFirstItemMatchingBlock(array, matches);
  return index != kBinarySearchNotFound ? std::ranges::data(array)[index] : nullptr;
}

/// The comparator gives 0 for what is wanted, -1 where that lies below the element, and
/// anything else where it lies above. One of those wanted, whichever is met first.
template <KVBinarySearchObjects Array,
          std::invocable<std::ranges::range_reference_t<const Array>> Comparator>
std::ranges::range_value_t<Array> findWithBinaryComparator(const Array& array,
                                                           Comparator&& compare) {
  const auto elements = std::ranges::data(array);
  std::int64_t low = 0;
  std::int64_t high = static_cast<std::int64_t>(std::ranges::size(array)) - 1;
  while (low <= high) {
    const std::int64_t middle = low + (high - low) / 2;
    const auto order = std::invoke(compare, elements[middle]);
    if (order == 0) {
      return elements[middle];
    }
    if (order == -1) {
      high = middle - 1;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

}  // namespace velor
