// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velor::media {

/// Where a channel of a clip belongs when it has no output of its own.
enum class SoundSide : std::uint8_t { both, left, right };

/// Brings the channels of a clip to a device with fewer, so that none is lost. Channels that
/// have an output of their number keep it; the others are added to the first two outputs, by
/// their side. All are attenuated by the same factor, so that full scale on all channels of an
/// output is full scale there.
class SoundFold {
 public:
  /// `sides`: one for each channel of the clip. `outputs`: at least 1.
  SoundFold(const std::vector<SoundSide>& sides, std::uint32_t outputs);

  /// Channels in. Any thread.
  std::uint32_t channels() const noexcept { return mChannels; }
  /// Interleaved in, interleaved out. Realtime-safe: yes.
  void apply(const float* from, std::size_t frames, float* to) const noexcept;

 private:
  const std::uint32_t mChannels;
  const std::uint32_t mOutputs;
  std::vector<float> mGains;  // of each channel, for each output
};

}  // namespace velor::media
