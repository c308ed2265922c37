// SPDX-License-Identifier: MIT
#include "platform/store/ApplicationFolders.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/store/SystemFailure.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kOwnerAlone = 0700;
constexpr std::size_t kMaximumEntryBytes = 1 << 20;  // of the password database

fs::path absoluteOrNone(const char* value) {
  fs::path path(value != nullptr ? value : "");
  return path.is_absolute() ? path : fs::path();
}

fs::path homeOfPasswordDatabase() {
  passwd entry{};
  passwd* found = nullptr;
  std::vector<char> strings(1024);
  while (getpwuid_r(getuid(), &entry, strings.data(), strings.size(), &found) == ERANGE &&
         strings.size() < kMaximumEntryBytes) {
    strings.resize(2 * strings.size());
  }
  return found != nullptr ? absoluteOrNone(found->pw_dir) : fs::path();
}

fs::path applicationFolder(const char* base, const fs::path& home, const char* belowHome) {
  const fs::path given = absoluteOrNone(base);
  if (!given.empty()) {
    return given / "velor";
  }
  return home.empty() ? fs::path() : home / belowHome / "velor";
}

Expected<fs::path> create(const fs::path& folder) {
  if (folder.empty()) {
    return failure("HOME is not set, and the password database has no home folder");
  }
  return createPrivateFolder(folder).map([&folder] { return folder; });
}

}  // namespace

Expected<> createPrivateFolder(const fs::path& folder) {
  std::error_code ignored;
  if (fs::is_directory(folder, ignored)) {
    return {};
  }
  if (folder.has_parent_path()) {
    if (auto above = createPrivateFolder(folder.parent_path()); !above) {
      return above;
    }
  }
  if (mkdir(folder.c_str(), kOwnerAlone) != 0 &&
      !(errno == EEXIST && fs::is_directory(folder, ignored))) {
    return systemFailure("make the folder", folder);
  }
  return {};
}

ApplicationFolders::ApplicationFolders()
    : ApplicationFolders([home = homeOfPasswordDatabase()](const char* name) {
        const char* const value = std::getenv(name);
        const bool isFromDatabase =
            std::string_view(name) == "HOME" && absoluteOrNone(value).empty();
        return isFromDatabase ? home.c_str() : value;
      }) {}

ApplicationFolders::ApplicationFolders(const Variable& variable) {
  const fs::path home = absoluteOrNone(variable("HOME"));
  mData = applicationFolder(variable("XDG_DATA_HOME"), home, ".local/share");
  mConfig = applicationFolder(variable("XDG_CONFIG_HOME"), home, ".config");
  mState = applicationFolder(variable("XDG_STATE_HOME"), home, ".local/state");
}

Expected<fs::path> ApplicationFolders::createData() const {
  return create(mData);
}

Expected<fs::path> ApplicationFolders::createConfig() const {
  return create(mConfig);
}

std::string ApplicationFolders::missing() const {
  struct Row {
    const fs::path& folder;
    const char* what;
    const char* variable;
  };
  std::string what;
  std::string variables;
  for (const Row& row :
       {Row{mData, "the state", "XDG_DATA_HOME"}, Row{mConfig, "the settings", "XDG_CONFIG_HOME"},
        Row{mState, "the log", "XDG_STATE_HOME"}}) {
    if (row.folder.empty()) {
      what += (what.empty() ? "" : ", ") + std::string(row.what);
      variables += (variables.empty() ? ", or " : " and ") + std::string(row.variable);
    }
  }
  return what.empty() ? "" : "cannot save " + what + ": no home folder; set HOME" + variables;
}

fs::path ApplicationFolders::logs() const {
  return mState.empty() ? fs::path() : mState / "Logs";
}

fs::path ApplicationFolders::crashes() const {
  return mState.empty() ? fs::path() : mState / "Crashes";
}

}  // namespace velor::store
