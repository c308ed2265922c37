// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "platform/audio/AudioTypes.h"
#include "platform/host/PriorityMutex.h"

namespace velor {

/// The samples that wait to be played, by their place in the device's own count: the
/// sample of place p stands at p modulo the ring's length. It is the reference of the
/// render callback.
///
/// `lock` guards all fields. The callback takes it; callers of the other operations hold
/// it, for no longer than it takes to copy samples.
struct AudioGeneratorRefCon {
  /// The callback returns it when it has no samples.
  static constexpr audio::OSStatus kNothingToPlay = 0x5000;
  static constexpr audio::OSStatus kNoReference = -2;
  static constexpr audio::OSStatus kNoSampleTime = -10;

  /// Writes the samples for the places from `start` on; nothing is to be played beyond
  /// them. Realtime-safe: yes.
  void write(std::uint64_t start, std::span<const float> samples) noexcept;

  /// Ends the stream, and clears the ring: the device may read places before the next stream
  /// begins, and a server that starts again counts its samples from 0.
  void clear() noexcept;

  /// An AURenderCallback with one of these as its reference. The first channel gets
  /// the samples of the cycle's places when all of them were written, else silence; other
  /// channels are silent. Places before those written read what the ring still holds.
  static audio::OSStatus render(const host::RealtimeContext& realtime, void* refCon,
                                const audio::AudioTimeStamp& timeStamp, std::uint32_t frames,
                                std::span<float* const> channels) noexcept;

  host::PriorityMutex lock;
  std::vector<float> ring;
  /// First place not yet written; 0 when nothing is to be played.
  std::uint64_t writeEnd = 0;
  /// End of the last cycle that was served; 0 when it was silent.
  std::uint64_t lastReadEnd = 0;

 private:
  void read(std::uint64_t start, std::span<float> samples) const noexcept;
};

}  // namespace velor
