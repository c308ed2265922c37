// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "platform/host/Error.h"

namespace velor::store {

/// Makes a folder and those above it that are missing, each readable by its
/// owner alone (mode 0700). One that exists keeps its mode. Other processes may
/// do the same at the same time. Any thread. Realtime-safe: no.
Expected<> createPrivateFolder(const std::filesystem::path& folder);

/// Where the user's files of the application lie, by the XDG Base Directory
/// Specification 0.8: a variable that is unset, empty or not an absolute path
/// is ignored.
class ApplicationFolders {
 public:
  /// An environment variable's value, or null.
  using Variable = std::function<const char*(const char* name)>;

  /// Reads the environment of the process, now; nothing is created. Without HOME the home
  /// comes from the password database.
  ApplicationFolders();
  explicit ApplicationFolders(const Variable& variable);

  /// Documents' automatic copies: $XDG_DATA_HOME/velor.
  Expected<std::filesystem::path> createData() const;
  /// Settings: $XDG_CONFIG_HOME/velor.
  Expected<std::filesystem::path> createConfig() const;

  /// The same, and the folders of the log and of the reports of crashes in the state folder,
  /// by name only: they need not exist. Empty when there is no home.
  const std::filesystem::path& data() const noexcept { return mData; }
  const std::filesystem::path& config() const noexcept { return mConfig; }
  const std::filesystem::path& state() const noexcept { return mState; }
  std::filesystem::path logs() const;
  std::filesystem::path crashes() const;

  /// A message that lists what cannot be saved for lack of a folder, and the variables to
  /// set; empty when all folders are known.
  std::string missing() const;

 private:
  std::filesystem::path mData;
  std::filesystem::path mConfig;
  std::filesystem::path mState;
};

}  // namespace velor::store
