// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>

#include "platform/audio/AudioTypes.h"

namespace velor::audio {

/// The one kind of format that units take: 32-bit float, a buffer for each channel.
inline AudioStreamBasicDescription streamFormat(double sampleRate, std::uint32_t channels) {
  AudioStreamBasicDescription format;
  format.mSampleRate = sampleRate;
  format.mFormatID = kAudioFormatLinearPCM;
  format.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                        (channels == 1 ? 0 : kAudioFormatFlagIsNonInterleaved);
  format.mBytesPerPacket = sizeof(float);
  format.mFramesPerPacket = 1;
  format.mBytesPerFrame = sizeof(float);
  format.mChannelsPerFrame = channels;
  format.mBitsPerChannel = 8 * sizeof(float);
  return format;
}

/// A single channel may be told as non-interleaved too.
inline bool isStreamFormat(const AudioStreamBasicDescription& format) {
  AudioStreamBasicDescription wanted = streamFormat(format.mSampleRate, format.mChannelsPerFrame);
  if (format.mChannelsPerFrame == 1) {
    wanted.mFormatFlags |= format.mFormatFlags & kAudioFormatFlagIsNonInterleaved;
  }
  return std::isfinite(format.mSampleRate) && format.mSampleRate > 0 &&
         format.mChannelsPerFrame >= 1 && format.mChannelsPerFrame <= kMaxChannels &&
         format == wanted;
}

}  // namespace velor::audio
