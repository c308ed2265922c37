// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "Kv-Appkit/KVFourCC.h"

namespace velor {

/// The reports of the sender of MTC from a reader to its owner.
enum VLMTCState : std::uint32_t {
  kVLMTCDidStartReading = KVFourCC("rdst"),
  kVLMTCDidChangeFramerate = KVFourCC("dcfr"),  ///< the format of the time, not the measured rate
  kVLMTCDidStartFreewheel = KVFourCC("fwst"),
  kVLMTCDidStopFreewheel = KVFourCC("fwsp"),
  kVLMTCDidResume = KVFourCC("resm"),  ///< LTC came back while freewheeling
};

/// For the log. A return of LTC reads as an error there: the line was interrupted.
constexpr const char* stringFromMTCState(VLMTCState state) noexcept {
  switch (state) {
    case kVLMTCDidStartReading:
      return "did start reading";
    case kVLMTCDidChangeFramerate:
      return "did change framerate";
    case kVLMTCDidStartFreewheel:
      return "did start freewheel";
    case kVLMTCDidStopFreewheel:
      return "did stop freewheel";
    case kVLMTCDidResume:
    default:
      return "has error";
  }
}

}  // namespace velor
