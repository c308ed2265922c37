// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVShared.h"

#include <gtest/gtest.h>

#include <string>

namespace velor {
namespace {

std::string gLife;

struct Core {
  Core() { gLife += "core "; }
  ~Core() { gLife += "~core "; }
};

struct Manager {
  Manager() {
    KVShared<Core>::instance();
    gLife += "manager ";
  }
  ~Manager() {
    EXPECT_EQ(&KVShared<Manager>::instance(), this);
    gLife += "~manager ";
  }
};

TEST(KVShared, InstancesAreMadeOnFirstUseAndEndedYoungestFirst) {
  gLife.clear();
  Manager& manager = KVShared<Manager>::instance();
  EXPECT_EQ(&KVShared<Manager>::instance(), &manager);
  EXPECT_EQ(gLife, "core manager ");
  KVSharedInstances::clear();
  EXPECT_EQ(gLife, "core manager ~manager ~core ");
  KVShared<Core>::instance();  // and again
  KVSharedInstances::clear();
  EXPECT_EQ(gLife, "core manager ~manager ~core core ~core ");
}

}  // namespace
}  // namespace velor
