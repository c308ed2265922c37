// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/host/Error.h"

namespace velor::store {

/// Files that are whole at any time: a crash, a full disk or a loss of power
/// leaves the old contents or the new ones, never half of them.
///
/// Any thread; they wait for the disk. Realtime-safe: no.
class AtomicFile {
 public:
  /// Replaces the file's contents, or makes it; for its owner alone (mode 0600).
  /// A link is followed. An error names the step that failed and its path; the old file is as
  /// it was then and no other is left, unless the last step failed: the one that makes the
  /// exchange survive a loss of power.
  [[nodiscard]] static Expected<> write(const std::filesystem::path& path, std::string_view bytes);

  /// The whole of a regular file. One of more than `maxBytes` is refused before
  /// it is read.
  [[nodiscard]] static Expected<std::string> read(const std::filesystem::path& path,
                                                  std::size_t maxBytes);
};

}  // namespace velor::store
