// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVShared.h"

#include <gtest/gtest.h>

#include <string>

namespace velor {
namespace {

std::string gLife;

// 'b' uses 'a'.
template <char name>
struct Shared {
  Shared() {
    if (name == 'b') {
      KVShared<Shared<'a'>>::instance();
    }
    gLife += name;
  }
  ~Shared() { gLife += name; }
};

TEST(KVShared, InstancesAreMadeOnFirstUseAndEndedYoungestFirst) {
  for (const char* life : {"abba", "abbaabba"}) {
    KVShared<Shared<'b'>>::instance();
    KVSharedInstances::clear();
    EXPECT_EQ(gLife, life);
  }
}

}  // namespace
}  // namespace velor
