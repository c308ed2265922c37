// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaBookmark.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace velor {

VLMediaBookmark VLMediaBookmark::of(const std::filesystem::path& clip,
                                    const std::filesystem::path& folder) {
  std::error_code error;
  VLMediaBookmark bookmark;
  bookmark.absolute = std::filesystem::absolute(clip, error).lexically_normal();
  if (!folder.empty()) {
    bookmark.relative = bookmark.absolute.lexically_relative(
        std::filesystem::absolute(folder, error).lexically_normal());
  }
  return bookmark;
}

VLMediaBookmark VLMediaBookmark::fromData(std::span<const std::uint8_t> data) {
  const auto zero = std::find(data.begin(), data.end(), std::uint8_t{0});
  VLMediaBookmark bookmark;
  bookmark.absolute = std::string(data.begin(), zero);
  if (zero != data.end()) {
    bookmark.relative = std::string(zero + 1, data.end());
  }
  return bookmark;
}

std::vector<std::uint8_t> VLMediaBookmark::data() const {
  std::string text = absolute.native();
  if (!relative.empty()) {
    text += '\0' + relative.native();
  }
  return {text.begin(), text.end()};
}

std::optional<std::filesystem::path> VLMediaBookmark::resolve(
    const std::filesystem::path& folder) const {
  std::error_code error;
  if (absolute.is_absolute() && std::filesystem::is_regular_file(absolute, error)) {
    return absolute;
  }
  if (!folder.empty() && !relative.empty()) {
    auto moved = (std::filesystem::absolute(folder, error) / relative).lexically_normal();
    if (std::filesystem::is_regular_file(moved, error)) {
      return moved;
    }
  }
  return std::nullopt;
}

}  // namespace velor
