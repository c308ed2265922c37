// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/media/PlayerTypes.h"

namespace velor::media {

/// One decoded frame of video. Never changed once it is made, so that threads can share it.
struct VideoFrame {
  MediaTime time{};                    ///< position of the frame's start
  int width = 0;                       ///< pixels in memory
  int height = 0;                      ///< rows
  std::size_t bytesPerRow = 0;         ///< at least 4 * width
  const std::uint8_t* data = nullptr;  ///< four bytes a pixel: blue, green, red, unused
  double pixelAspect = 1;              ///< width of a pixel over its height
  std::shared_ptr<const void> owner;   ///< keeps `data`
};

}  // namespace velor::media
