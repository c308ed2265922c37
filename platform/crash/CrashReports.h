// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

namespace velor::crash {

/// The reports of crashes in a folder: "crash-2026-11-22-14-57-38-1234.txt", after the time
/// (UTC) and the process. Beside one that no start has named yet lies its mark, an empty file.
/// Several processes may use the folder; it need not exist. Any thread. Realtime-safe: no.
class CrashReports {
 public:
  static constexpr const char* kPrefix = "crash-";
  static constexpr const char* kSuffix = ".txt";
  static constexpr const char* kMark = ".new";  // after the report's name
  static constexpr std::size_t kKept = 10;

  explicit CrashReports(std::filesystem::path folder) : mFolder(std::move(folder)) {}

  /// Removes all but the latest ones. Those with a mark count as the latest, since the clock
  /// of a machine without a battery begins in the past again.
  void prune() const;

  /// Those with a mark, the oldest first. Each is given once, unless the mark cannot be removed.
  std::vector<std::filesystem::path> takeNew() const;

 private:
  std::vector<std::filesystem::path> all() const;

  const std::filesystem::path mFolder;
};

}  // namespace velor::crash
