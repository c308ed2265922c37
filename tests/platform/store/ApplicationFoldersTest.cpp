// SPDX-License-Identifier: MIT
#include "platform/store/ApplicationFolders.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

using Variables = std::map<std::string, std::string>;

ApplicationFolders foldersOf(const Variables& variables) {
  return ApplicationFolders([&variables](const char* name) -> const char* {
    const auto found = variables.find(name);
    return found != variables.end() ? found->second.c_str() : nullptr;
  });
}

// The home of this process's user by the file of the database, or "".
std::string homeInPasswordFile() {
  std::ifstream file("/etc/passwd");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string field[6];
    for (std::string& text : field) {
      std::getline(fields, text, ':');
    }
    if (field[2] == std::to_string(getuid())) {
      return field[5];
    }
  }
  return "";
}

mode_t modeOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

TEST(ApplicationFolders, OnlyAbsoluteVariablesMoveAFolderFromItsPlaceInTheHome) {
  const auto plain = foldersOf({{"HOME", "/home/ann"}});
  EXPECT_EQ(plain.data(), "/home/ann/.local/share/velor");
  EXPECT_EQ(plain.config(), "/home/ann/.config/velor");
  EXPECT_EQ(plain.state(), "/home/ann/.local/state/velor");
  EXPECT_EQ(plain.logs(), "/home/ann/.local/state/velor/Logs");

  const auto moved = foldersOf({{"HOME", "/home/ann"},
                                {"XDG_DATA_HOME", "/disk/data"},
                                {"XDG_CONFIG_HOME", "relative/config"},
                                {"XDG_STATE_HOME", ""}});
  EXPECT_EQ(moved.data(), "/disk/data/velor");
  EXPECT_EQ(moved.config(), plain.config());
  EXPECT_EQ(moved.state(), plain.state());
}

TEST(ApplicationFolders, WithoutAUsableHomeThePasswordDatabaseNamesIt) {
  const std::string home = homeInPasswordFile();
  for (const Variables& variables :
       {Variables{}, Variables{{"HOME", ""}}, Variables{{"HOME", "here"}}}) {
    const auto folders = foldersOf(variables);
    if (home.empty()) {  // a user without an entry: an error in words, no folder
      EXPECT_TRUE(folders.logs().empty());
      EXPECT_NE(folders.createState().error.find("HOME"), std::string::npos);
    } else {
      EXPECT_EQ(folders.config(), home + "/.config/velor");
    }
  }
}

TEST(ApplicationFolders, MissingFoldersAreMadeForTheOwnerAloneAndOthersAreLeftAsTheyAre) {
  const test::TemporaryFolder temporary;
  const auto home = temporary.path() / "home";
  ASSERT_EQ(mkdir(home.c_str(), 0755), 0);
  ASSERT_EQ(chmod(home.c_str(), 0755), 0);
  const auto folders = foldersOf({{"HOME", home.string()}});
  const mode_t before = umask(0);
  const FolderResult data = folders.createData();
  const FolderResult state = folders.createState();
  umask(before);
  ASSERT_TRUE(data) << data.error;
  ASSERT_TRUE(state) << state.error;
  EXPECT_EQ(data.path, home / ".local/share/velor");
  for (const char* made :
       {".local", ".local/share", ".local/share/velor", ".local/state", ".local/state/velor"}) {
    EXPECT_EQ(modeOf(home / made), 0700U) << made;
  }
  EXPECT_EQ(modeOf(home), 0755U);
  EXPECT_FALSE(std::filesystem::exists(folders.config()));  // nobody asked
  EXPECT_TRUE(folders.createData()) << "a second time is no fault";
}

TEST(ApplicationFolders, WhatCannotBeMadeIsToldWithItsPath) {
  const test::TemporaryFolder temporary;
  std::ofstream(temporary.path() / "file") << "x";
  std::ofstream(temporary.path() / "velor") << "x";
  const auto below = (temporary.path() / "file" / "deep").string();
  const auto folders =
      foldersOf({{"XDG_CONFIG_HOME", below}, {"XDG_DATA_HOME", temporary.path().string()}});
  const FolderResult config = folders.createConfig();
  EXPECT_FALSE(config);
  EXPECT_TRUE(config.path.empty());
  EXPECT_NE(config.error.find(below + "/velor"), std::string::npos) << config.error;
  EXPECT_FALSE(folders.createData()) << "a file of the folder's name";
  EXPECT_EQ(createPrivateFolder(temporary.path() / "file"),
            std::make_error_code(std::errc::not_a_directory));
  EXPECT_EQ(createPrivateFolder(""), std::make_error_code(std::errc::no_such_file_or_directory));
}

}  // namespace
}  // namespace velor::store
