// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::store {

/// A file that cannot be read whole and is about to be overwritten.
struct DamagedFile {
  /// Copies it, in place of the copy kept before, which stays when this fails. The outcome,
  /// for people: "the file is kept as ...", or why it is not. Waits for the disk.
  static std::string keep(const std::filesystem::path& file, const std::filesystem::path& aside);
};

}  // namespace velor::store
