// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/midi/MIDITypes.h"

namespace velor {

/// A packet whose memory ends where one in a list may end, at a multiple of 4
/// bytes, so that a read past its end is caught. (The compiler may read the length
/// and the first two bytes as one word.)
class ExactPacket {
 public:
  ExactPacket(midi::MIDITimeStamp time, const std::uint8_t* bytes, std::size_t length)
      : mMemory(std::make_unique<std::uint8_t[]>((offsetof(midi::MIDIPacket, data) + length + 3) /
                                                 4 * 4)) {
    const auto length16 = static_cast<std::uint16_t>(length);
    std::memcpy(&mMemory[offsetof(midi::MIDIPacket, timeStamp)], &time, sizeof time);
    std::memcpy(&mMemory[offsetof(midi::MIDIPacket, length)], &length16, sizeof length16);
    if (length != 0) {
      std::memcpy(&mMemory[offsetof(midi::MIDIPacket, data)], bytes, length);
    }
  }
  ExactPacket(midi::MIDITimeStamp time, const std::vector<std::uint8_t>& bytes)
      : ExactPacket(time, bytes.data(), bytes.size()) {}

  const midi::MIDIPacket* get() const noexcept {
    return reinterpret_cast<const midi::MIDIPacket*>(mMemory.get());
  }

 private:
  const std::unique_ptr<std::uint8_t[]> mMemory;
};

/// The second bytes of the eight quarter-frames of a time; `rate` is the MTC rate
/// code.
inline std::array<std::uint8_t, 8> quarterFrames(unsigned hours, unsigned minutes, unsigned seconds,
                                                 unsigned frames, unsigned rate) {
  const unsigned nibbles[] = {frames % 16,  frames / 16,  seconds % 16, seconds / 16,
                              minutes % 16, minutes / 16, hours % 16,   hours / 16 + 2 * rate};
  std::array<std::uint8_t, 8> bytes{};
  for (unsigned i = 0; i < 8; ++i) {
    bytes[i] = static_cast<std::uint8_t>(16 * i + nibbles[i]);
  }
  return bytes;
}

}  // namespace velor
