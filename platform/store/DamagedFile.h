// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::store {

/// A file that cannot be read whole and is about to be written over.
struct DamagedFile {
  /// Copies it, over what was kept before. What became of it, for people: "the file is
  /// kept as ...", or why it cannot be. Waits for the disk.
  static std::string keep(const std::filesystem::path& file, const std::filesystem::path& aside);
};

}  // namespace velor::store
