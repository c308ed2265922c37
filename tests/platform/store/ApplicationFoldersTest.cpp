// SPDX-License-Identifier: MIT
#include "platform/store/ApplicationFolders.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <map>
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

TEST(ApplicationFolders, WithoutAHomeTheFoldersAreUnknownAndTheVariablesToSetAreNamed) {
  for (const Variables& variables :
       {Variables{}, Variables{{"HOME", ""}}, Variables{{"HOME", "here"}}}) {
    const auto folders = foldersOf(variables);
    EXPECT_TRUE(folders.logs().empty());
    EXPECT_NE(folders.createData().error().text.find("HOME"), std::string::npos);
    EXPECT_EQ(folders.missing(),
              "cannot save the state, the settings, the log: no home folder; set HOME, or "
              "XDG_DATA_HOME and XDG_CONFIG_HOME and XDG_STATE_HOME");
  }
  EXPECT_EQ(foldersOf({{"XDG_DATA_HOME", "/d"}, {"XDG_CONFIG_HOME", "/c"}}).missing(),
            "cannot save the log: no home folder; set HOME, or XDG_STATE_HOME");
  EXPECT_EQ(foldersOf({{"HOME", "/home/ann"}}).missing(), "");
}

TEST(ApplicationFolders, OfTheProcessAreInTheHomeOfThePasswordDatabaseWhereHomeIsNotSet) {
  const passwd* const user = getpwuid(getuid());
  for (const char* variable : {"HOME", "XDG_CONFIG_HOME"}) {
    unsetenv(variable);
  }
  EXPECT_EQ(ApplicationFolders().config(),
            user != nullptr ? std::string(user->pw_dir) + "/.config/velor" : "");
}

TEST(ApplicationFolders, MissingFoldersAreMadeForTheOwnerAloneAndOthersAreLeftAsTheyAre) {
  const test::TemporaryFolder temporary;
  const auto& home = temporary.path();
  ASSERT_EQ(chmod(home.c_str(), 0755), 0);
  const auto folders = foldersOf({{"HOME", home.string()}});
  const mode_t before = umask(0);
  const auto data = folders.createData();
  umask(before);
  EXPECT_EQ(data, home / ".local/share/velor");
  for (const char* made : {".local", ".local/share", ".local/share/velor"}) {
    EXPECT_EQ(test::modeOf(home / made), 0700U) << made;
  }
  EXPECT_EQ(test::modeOf(home), 0755U);
  EXPECT_FALSE(std::filesystem::exists(folders.config()));  // nobody asked
  EXPECT_TRUE(folders.createData()) << "a second time";
  std::ofstream(home / ".config") << "a file in the way";
  EXPECT_EQ(folders.createConfig().error().text,
            "cannot make the folder " + (home / ".config").string() + ": File exists");
}

}  // namespace
}  // namespace velor::store
