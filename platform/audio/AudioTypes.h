// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>

#include "platform/host/Realtime.h"

namespace velor::audio {

/// 0, one of the codes below, or the result of a render callback.
using OSStatus = std::int32_t;

inline constexpr OSStatus kAudioHardwareNotRunningError = 0x73746F70;        // 'stop'
inline constexpr OSStatus kAudioHardwareUnspecifiedError = 0x77686174;       // 'what'
inline constexpr OSStatus kAudioHardwareIllegalOperationError = 0x6E6F7065;  // 'nope'
inline constexpr OSStatus kAudioHardwareBadObjectError = 0x216F626A;         // '!obj'
inline constexpr OSStatus kAudioHardwareBadDeviceError = 0x21646576;         // '!dev'
inline constexpr OSStatus kAudioUnitErr_InvalidProperty = -10879;
inline constexpr OSStatus kAudioUnitErr_InvalidParameter = -10878;
inline constexpr OSStatus kAudioUnitErr_InvalidElement = -10877;
inline constexpr OSStatus kAudioUnitErr_NoConnection = -10876;
inline constexpr OSStatus kAudioUnitErr_FormatNotSupported = -10868;
inline constexpr OSStatus kAudioUnitErr_Uninitialized = -10867;
inline constexpr OSStatus kAudioUnitErr_PropertyNotWritable = -10865;
inline constexpr OSStatus kAudioUnitErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAUGraphErr_OutputNodeErr = -10862;
inline constexpr OSStatus kAUGraphErr_InvalidConnection = -10861;
inline constexpr OSStatus kAUGraphErr_NodeNotFound = -10860;
inline constexpr OSStatus kAudioUnitErr_InvalidPropertyValue = -10851;
inline constexpr OSStatus kAudioUnitErr_PropertyNotInUse = -10850;

/// A device of the service; 0 is none. One that goes keeps its id for its return.
using AudioObjectID = std::uint32_t;
inline constexpr AudioObjectID kAudioObjectUnknown = 0;

enum class AudioDirection : std::uint8_t { input, output };

// --- time ---

inline constexpr std::uint32_t kAudioTimeStampSampleTimeValid = 1;
inline constexpr std::uint32_t kAudioTimeStampHostTimeValid = 2;
inline constexpr std::uint32_t kAudioTimeStampSampleHostTimeValid = 3;

struct AudioTimeStamp {
  double mSampleTime = 0;       ///< on the device's own running count, which never wraps
  std::uint64_t mHostTime = 0;  ///< ns
  std::uint32_t mFlags = 0;     ///< which of the two are valid
};

// --- the signal: 32-bit float, a span for each channel ---

/// The most channels that a device offers in one direction.
inline constexpr std::uint32_t kMaxChannels = 128;
/// The most frames that a unit is asked for at once; longer cycles of a device
/// come in pieces of this.
inline constexpr std::uint32_t kMaxFramesPerSlice = 4096;

/// Fills the channels of an output, or reads those of an input, each `frames` long. An
/// output's cycle is silent when the result is not 0.
using AURenderCallback = OSStatus (*)(const host::RealtimeContext& realtime, void* refCon,
                                      const AudioTimeStamp& time, std::uint32_t frames,
                                      std::span<float* const> channels) noexcept;
struct AURenderCallbackStruct {
  AURenderCallback inputProc = nullptr;
  void* inputProcRefCon = nullptr;
};

inline constexpr std::uint32_t kAudioFormatLinearPCM = 0x6C70636D;  // 'lpcm'
inline constexpr std::uint32_t kAudioFormatFlagIsFloat = 1;
inline constexpr std::uint32_t kAudioFormatFlagIsPacked = 8;
inline constexpr std::uint32_t kAudioFormatFlagIsNonInterleaved = 32;

struct AudioStreamBasicDescription {
  double mSampleRate = 0;
  std::uint32_t mFormatID = 0;
  std::uint32_t mFormatFlags = 0;
  std::uint32_t mBytesPerPacket = 0;
  std::uint32_t mFramesPerPacket = 0;
  std::uint32_t mBytesPerFrame = 0;
  std::uint32_t mChannelsPerFrame = 0;
  std::uint32_t mBitsPerChannel = 0;

  friend bool operator==(const AudioStreamBasicDescription&,
                         const AudioStreamBasicDescription&) = default;
};

}  // namespace velor::audio
