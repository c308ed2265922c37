// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <string>

namespace velor::store {

/// A new file that takes the place of another, or of none, once it is whole. Until
/// then it lies beside it under a name of its own; it goes with the object unless
/// `takePlace` was reached. A crash or a kill can leave it behind, a `.velor-` file; the
/// next replacement in that folder that reaches its place takes it away when it is over
/// kLeftBehindAge old and nobody has it open.
///
/// Belongs to one thread; it waits for the disk. Realtime-safe: no.
class ReplacementFile {
 public:
  static constexpr std::time_t kLeftBehindAge = 600;  // seconds without a change

  /// Makes the new file, with the mode less the process's umask. A link at `path` is
  /// followed. What can be refused is refused here, before anything changes: see
  /// `error`.
  ReplacementFile(const std::filesystem::path& path, mode_t mode);
  ~ReplacementFile();
  ReplacementFile(const ReplacementFile&) = delete;
  ReplacementFile& operator=(const ReplacementFile&) = delete;

  /// Why there is no new file, for people, with the path; empty: all is well.
  const std::string& error() const noexcept { return mError; }

  /// Open for reading and writing, from its begin; owned by this object.
  int descriptor() const noexcept { return mFile; }
  /// The path of the new file.
  const std::string& name() const noexcept { return mName; }

  /// Puts the contents on the disk and the new file in the old one's place. Empty when
  /// all is done; else the step that failed, its path and why. The old file is as it
  /// was then, unless it was the one step behind the exchange: that of making it last
  /// over a loss of power. Once, and last.
  [[nodiscard]] std::string takePlace();

 private:
  int openFile(mode_t mode);
  bool closeFile() noexcept;

  std::filesystem::path mTarget;
  std::filesystem::path mFolderPath;
  std::string mName;
  std::string mError;
  int mFolder = -1;
  int mFile = -1;
  int mLock = -1;  // of the same file; it says that somebody writes there
  bool mIsThere = false;
};

}  // namespace velor::store
