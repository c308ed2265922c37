// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

namespace velor {

/// A reference to a clip within a document: the bytes of its absolute path, and, after a zero
/// byte, those of its path from the document's folder. So a folder that moves as a whole keeps
/// its clips, and a path need not be UTF-8.
struct VLMediaBookmark {
  std::filesystem::path absolute;
  std::filesystem::path relative;  ///< empty without a document's folder

  /// `folder` is that of the document; empty for none.
  static VLMediaBookmark of(const std::filesystem::path& clip, const std::filesystem::path& folder);
  static VLMediaBookmark fromData(std::span<const std::uint8_t> data);
  std::vector<std::uint8_t> data() const;

  /// The one of both paths that leads to a regular file; the absolute one is preferred.
  std::optional<std::filesystem::path> resolve(const std::filesystem::path& folder) const;
};

}  // namespace velor
