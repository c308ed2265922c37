// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace velor::audio {

/// How a sample lies in a file.
enum class SampleEncoding : std::uint8_t { int16, int24, float32 };

/// The format of a sound file. Values outside the ranges mean a damaged header.
struct SoundFormat {
  static constexpr int kMinSampleRate = 8000;
  static constexpr int kMaxSampleRate = 768000;
  static constexpr int kMaxChannels = 64;

  int sampleRate = 48000;  ///< frames a second
  int channels = 1;
  SampleEncoding encoding = SampleEncoding::int16;
};

}  // namespace velor::audio
