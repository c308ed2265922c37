// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

namespace velor::store {

/// Files that are whole at any time: a crash, a full disk or a loss of power
/// leaves the old contents or the new ones, never half of them.
///
/// Any thread; they wait for the disk. Realtime-safe: no.
class AtomicFile {
 public:
  /// Replaces the file's contents, or makes it; for its owner alone (mode 0600).
  /// A link is followed. Empty when all is done; else for people the step that
  /// failed, its path and why. The old file is as it was then and no other is
  /// left, unless the one step behind the exchange failed: that of making it last
  /// over a loss of power.
  [[nodiscard]] static std::string write(const std::filesystem::path& path, std::string_view bytes);

  struct Contents {
    std::string bytes;
    std::string error;  ///< for people, with the path; empty: all is well

    explicit operator bool() const noexcept { return error.empty(); }
  };
  /// The whole of a regular file. One of more than `maxBytes` is refused before
  /// it is read.
  [[nodiscard]] static Contents read(const std::filesystem::path& path, std::size_t maxBytes);
};

}  // namespace velor::store
