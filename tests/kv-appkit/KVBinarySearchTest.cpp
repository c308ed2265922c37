// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVBinarySearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

namespace velor {
namespace {

TEST(KVBinarySearch, FindsWhatALookAtEveryElementFinds) {
  for (int count = 0; count <= 20; ++count) {
    std::vector<std::shared_ptr<int>> numbers;  // 0 0 2 2 4 4 ...
    for (int i = 0; i < count; ++i) {
      numbers.push_back(std::make_shared<int>(i / 2 * 2));
    }
    const std::span<const std::shared_ptr<int>> array(numbers);
    for (int wanted = -1; wanted <= count + 1; ++wanted) {
      const auto isBelow = [wanted](const auto& number) { return *number < wanted; };
      const auto isAbove = [wanted](const auto& number) { return *number > wanted; };
      const auto below = std::count_if(numbers.begin(), numbers.end(), isBelow);
      const auto above = std::count_if(numbers.begin(), numbers.end(), isAbove);
      EXPECT_EQ(findIndexOfLastItemMatchingBlock(array, isBelow),
                below > 0 ? below - 1 : kBinarySearchNotFound);
      EXPECT_EQ(findIndexOfFirstItemMatchingBlock(numbers, isAbove),
                above > 0 ? count - above : kBinarySearchNotFound);
      EXPECT_EQ(findLastItemMatchingBlock(numbers, isBelow),
                below > 0 ? numbers[static_cast<std::size_t>(below - 1)] : nullptr);
      EXPECT_EQ(findFirstItemMatchingBlock(array, isAbove),
                above > 0 ? numbers[static_cast<std::size_t>(count - above)] : nullptr);
      // What is no -1 leads up, whatever its sign.
      const auto found = findWithBinaryComparator(array, [wanted](const auto& number) {
        return wanted < *number ? -1 : wanted > *number ? -2 : 0;
      });
      EXPECT_EQ(found != nullptr, below + above < count);
      EXPECT_EQ(found != nullptr ? *found : wanted, wanted);
    }
  }
  EXPECT_EQ(kBinarySearchNotFound, 9223372036854775807);
}

}  // namespace
}  // namespace velor
