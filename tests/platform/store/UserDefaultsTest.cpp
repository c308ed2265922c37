// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

TEST(UserDefaults, AFullDiskDoesNotSpoilTheDamagedFileThatWasKeptBefore) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  const auto aside = folder.path() / "settings.json.damaged";
  std::ofstream(file) << std::string(1000, 'b');
  std::ofstream(aside) << std::string(100, 'a');
  {
    const test::FullDisk disk(500);
    UserDefaults(file, {}).keepDamaged("somewhere");
  }
  EXPECT_EQ(test::fileContents(aside), std::string(100, 'a'));
  UserDefaults(file, {}).keepDamaged("somewhere");
  EXPECT_EQ(test::fileContents(aside), std::string(1000, 'b'));
}

}  // namespace
}  // namespace velor::store
