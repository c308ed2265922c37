// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVShared.h"

#include <gtest/gtest.h>

#include <string>

#include "Kv-Appkit/KVFourCC.h"

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

TEST(KVFourCC, SpellsFromTheMostSignificantByteDown) {
  static_assert(KVFourCC("norm") == 0x6E6F726D);
  static_assert(KVFourCC("\xFF\x80 z") == 0xFF80207A);
  EXPECT_EQ(stringFromFourCC(0x6D696469), "midi");
  EXPECT_EQ(stringFromFourCC(0xFF610020), ".a. ");
  EXPECT_EQ(stringFromFourCC(0), "noErr");
}

}  // namespace
}  // namespace velor
