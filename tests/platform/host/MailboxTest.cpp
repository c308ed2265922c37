// SPDX-License-Identifier: MIT
#include "platform/host/Mailbox.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/host/LatestValue.h"
#include "platform/host/Seqlock.h"

namespace velor::host {
namespace {

// Real threads: the slots go round many times, which is where a lost or doubled
// slot would show.
TEST(Mailbox, UnderContentionEveryAcceptedValueComesOnceAndInOrder) {
  constexpr std::uint64_t kPosters = 3;
  constexpr std::uint64_t kValues = 4000;
  Mailbox<std::uint64_t> mailbox(16);
  std::vector<std::thread> threads;
  for (std::uint64_t poster = 0; poster < kPosters; ++poster) {
    threads.emplace_back([&mailbox, poster] {
      for (std::uint64_t i = 0; i < kValues; ++i) {
        if (poster == 0) {
          mailbox.push(poster << 32 | i);
          continue;
        }
        while (!mailbox.tryPush(poster << 32 | i)) {
          std::this_thread::yield();
        }
      }
    });
  }
  std::vector<std::uint64_t> next(kPosters, 0);
  std::uint64_t read = 0;
  while (read < kPosters * kValues) {
    std::uint64_t value = 0;
    if (!mailbox.pop(value)) {
      std::this_thread::yield();
      continue;
    }
    ASSERT_EQ(value & 0xFFFFFFFF, next[value >> 32]++);
    ++read;
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

struct Record {
  std::uint64_t a, b, c;
};

template <class Cell>
class SharedCell : public testing::Test {};
using Cells = testing::Types<Seqlocked<Record>, LatestValue<Record>>;
TYPED_TEST_SUITE(SharedCell, Cells);

TYPED_TEST(SharedCell, AReaderSeesWholeRecordsInTheirOrderAndTheLastOneAtLast) {
  TypeParam cell(Record{0, 0, 0});
  std::thread writer([&cell] {
    for (std::uint64_t i = 1; i <= 50000; ++i) {
      cell.store({i, 2 * i, 3 * i});
    }
  });
  std::uint64_t before = 0;
  while (before < 50000) {
    const Record seen = cell.load();
    ASSERT_EQ(seen.b, 2 * seen.a);
    ASSERT_EQ(seen.c, 3 * seen.a);
    ASSERT_GE(seen.a, before);
    before = seen.a;
  }
  writer.join();
  EXPECT_EQ(cell.load().a, 50000U);  // what was read stands
}

}  // namespace
}  // namespace velor::host
