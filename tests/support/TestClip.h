// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

#include "platform/media/VideoFrame.h"

namespace velor::test {

/// A clip that ffmpeg makes: each frame shows its number as black and white blocks, and each
/// second begins with a click on all channels.
struct TestClip {
  double seconds = 10;
  std::string frameRate = "25";  ///< as ffmpeg takes it; empty for no video
  int width = 320;
  int height = 180;
  int channels = 2;  ///< 0 for no sound
  std::string title = "Clip of a test";
  std::string audioCodec = "pcm_s16le";  ///< exact to the sample

  /// Frames a second.
  double rate() const;

  /// Makes the file; throws what ffmpeg says when it fails.
  void make(const std::filesystem::path& file) const;

  /// The number that a frame shows; -1 for a frame that is too small for one.
  static int numberOf(const media::VideoFrame& frame);
};

}  // namespace velor::test
