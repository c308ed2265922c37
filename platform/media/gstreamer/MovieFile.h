// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::media {

/// A QuickTime or MP4 file (ISO/IEC 14496-12).
struct MovieFile {
  /// Why it cannot be played, as far as its top level tells: a file that was cut off, or whose
  /// recording did not end, has no index. Empty for a file that is whole or of another kind.
  /// Reads some bytes of the file, so it may wait.
  static std::string problem(const std::filesystem::path& path);
};

}  // namespace velor::media
