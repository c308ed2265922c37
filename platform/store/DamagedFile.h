// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::store {

/// A file that could not be read completely and is about to be overwritten.
struct DamagedFile {
  /// Copies it; the copy replaces a former one, which stays if this fails. Returns a message
  /// either way: "the file is kept as ...", or why it is not. Waits for the disk.
  static std::string keep(const std::filesystem::path& file, const std::filesystem::path& aside);
};

}  // namespace velor::store
