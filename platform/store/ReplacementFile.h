// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <ctime>
#include <filesystem>
#include <utility>

#include "platform/host/Error.h"

namespace velor::store {

/// A new file that takes the place of another, or of none, once it is whole. Until
/// then it lies beside it under a name of its own; the object deletes it at its end unless
/// `takePlace` succeeded. A crash or a kill can leave it behind, a `.velor-` file; the
/// next replacement in that folder that reaches its place deletes it when it is over
/// kLeftBehindAge old and nobody has it open.
///
/// Belongs to one thread; it waits for the disk. Realtime-safe: no.
class ReplacementFile {
 public:
  static constexpr std::time_t kLeftBehindAge = 600;  // seconds without a change

  /// Makes the new file, with the mode less the process's umask. A link at `path` is
  /// followed. Whatever can be refused is refused here, before anything changes.
  static Expected<ReplacementFile> create(const std::filesystem::path& path, mode_t mode);
  ~ReplacementFile();
  ReplacementFile(ReplacementFile&& other) noexcept
      : mTarget(std::move(other.mTarget)),
        mName(std::move(other.mName)),
        mFile(std::exchange(other.mFile, -1)),
        mIsThere(std::exchange(other.mIsThere, false)) {}
  ReplacementFile& operator=(ReplacementFile&&) = delete;

  /// Open for reading and writing, from its begin; owned by this object.
  int descriptor() const noexcept { return mFile; }
  /// The path of the new file.
  const std::filesystem::path& name() const noexcept { return mName; }

  /// Puts the contents on the disk and the new file in the old one's place. On an error the
  /// old file is as it was, unless the last step failed: the one that makes the exchange
  /// survive a loss of power. Once, and last.
  [[nodiscard]] Expected<> takePlace();

 private:
  ReplacementFile(std::filesystem::path target, std::filesystem::path name, int file)
      : mTarget(std::move(target)), mName(std::move(name)), mFile(file), mIsThere(file >= 0) {}

  std::filesystem::path mTarget;
  std::filesystem::path mName;
  int mFile;  // locked, which says that somebody writes there
  bool mIsThere;
};

}  // namespace velor::store
