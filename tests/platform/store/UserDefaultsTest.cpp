// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

TEST(UserDefaults, DamagedSettingsAreAnErrorWithItsPlaceAndKeptAsideOverTheNextWriting) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  const auto aside = folder.path() / "settings.json.damaged";
  const UserDefaults defaults(file, {});
  std::optional<bool> value;
  const auto read = [&] {
    return defaults.read([&](KeyedUnarchiver& coder) { value = coder.decodeBool("on"); });
  };
  EXPECT_TRUE(read());  // a first run
  EXPECT_EQ(value, std::nullopt);
  for (const auto& [contents, place] :
       {std::pair("{\n  \"on\": tru\n}", "line 2"), std::pair(R"({"on": 3})", ": on: ")}) {
    std::ofstream(file) << contents;
    const std::string error = read().error().text;
    for (const char* part : {place, file.c_str(), aside.c_str()}) {
      EXPECT_NE(error.find(part), std::string::npos) << error;
    }
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(defaults.write([](KeyedArchiver& coder) { coder.encodeBool(true, "on"); }));
    EXPECT_EQ(test::fileContents(aside), contents);
    EXPECT_TRUE(read());
    EXPECT_EQ(value, true);
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
