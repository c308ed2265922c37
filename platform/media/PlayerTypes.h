// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace velor::media {

/// A position in a clip, from its first frame, or a length of one.
using MediaTime = std::chrono::nanoseconds;

enum class PlayerStatus : std::uint8_t {
  unknown = 0,      ///< the clip is being opened
  readyToPlay = 1,  ///< all operations work, and what the clip holds is known
  failed = 2,       ///< for good; Player::error has the reason
};

/// What a new player has to do.
struct PlayerRequest {
  std::filesystem::path path;  ///< of any bytes; a regular file
  /// False where nobody sees the frames: they are not decoded then, which saves most of the
  /// work, and the player delivers none.
  bool wantsVideo = true;
};

}  // namespace velor::media
