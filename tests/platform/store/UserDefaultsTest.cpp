// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

TEST(UserDefaults, DamagedSettingsAreToldWithTheirPlaceAndKeptAsideOverTheNextWriting) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  const auto aside = folder.path() / "settings.json.damaged";
  const UserDefaults defaults(file, {});
  bool value = false;
  const auto read = [&] {
    value = false;
    return defaults.read(
        [&](KeyedUnarchiver& coder) { value = coder.decodeBool("on").value_or(false); });
  };
  const auto write = [&] {
    return defaults.write([](KeyedArchiver& coder) { coder.encodeBool(true, "on"); });
  };
  EXPECT_TRUE(read());  // a first run
  EXPECT_FALSE(value);
  EXPECT_TRUE(write());
  EXPECT_TRUE(read());
  EXPECT_TRUE(value);

  struct Case {
    const char* contents;
    const char* place;
  };
  for (const Case& each : {Case{"{\n  \"on\": tru\n}", "line 2"}, Case{R"({"on": 3})", "on:"}}) {
    std::ofstream(file) << each.contents;
    const std::string error = read().error().text;
    for (const char* part : {each.place, file.c_str(), aside.c_str()}) {
      EXPECT_NE(error.find(part), std::string::npos) << error;
    }
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(write());
    EXPECT_EQ(test::fileContents(aside), each.contents);
    EXPECT_TRUE(read());
  }
}

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
