// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/host/Realtime.h"

namespace velor::audio {

/// 0, or one of the codes below, or what a render callback returned.
using OSStatus = std::int32_t;

/// Objects of a service: the system, a device, a stream of one. 0 is none.
using AudioObjectID = std::uint32_t;
inline constexpr AudioObjectID kAudioObjectUnknown = 0;
inline constexpr AudioObjectID kAudioObjectSystemObject = 1;

inline constexpr OSStatus kAudioHardwareNotRunningError = 0x73746F70;        // 'stop'
inline constexpr OSStatus kAudioHardwareUnspecifiedError = 0x77686174;       // 'what'
inline constexpr OSStatus kAudioHardwareUnknownPropertyError = 0x77686F3F;   // 'who?'
inline constexpr OSStatus kAudioHardwareBadPropertySizeError = 0x2173697A;   // '!siz'
inline constexpr OSStatus kAudioHardwareIllegalOperationError = 0x6E6F7065;  // 'nope'
inline constexpr OSStatus kAudioHardwareBadObjectError = 0x216F626A;         // '!obj'
inline constexpr OSStatus kAudioHardwareBadDeviceError = 0x21646576;         // '!dev'
inline constexpr OSStatus kAudioUnitErr_InvalidProperty = -10879;
inline constexpr OSStatus kAudioUnitErr_InvalidParameter = -10878;
inline constexpr OSStatus kAudioUnitErr_InvalidElement = -10877;
inline constexpr OSStatus kAudioUnitErr_NoConnection = -10876;
inline constexpr OSStatus kAudioUnitErr_TooManyFramesToProcess = -10874;
inline constexpr OSStatus kAudioUnitErr_FormatNotSupported = -10868;
inline constexpr OSStatus kAudioUnitErr_Uninitialized = -10867;
inline constexpr OSStatus kAudioUnitErr_InvalidScope = -10866;
inline constexpr OSStatus kAudioUnitErr_PropertyNotWritable = -10865;
inline constexpr OSStatus kAudioUnitErr_InvalidPropertyValue = -10851;
inline constexpr OSStatus kAudioUnitErr_PropertyNotInUse = -10850;
inline constexpr OSStatus kAudioUnitErr_CannotDoInCurrentContext = -10863;
inline constexpr OSStatus kAUGraphErr_NodeNotFound = -10860;
inline constexpr OSStatus kAUGraphErr_InvalidConnection = -10861;
inline constexpr OSStatus kAUGraphErr_OutputNodeErr = -10862;

// --- objects ---

using AudioObjectPropertySelector = std::uint32_t;
using AudioObjectPropertyScope = std::uint32_t;
inline constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeGlobal = 0x676C6F62;  // 'glob'
inline constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeInput = 0x696E7074;   // 'inpt'
inline constexpr AudioObjectPropertyScope kAudioObjectPropertyScopeOutput = 0x6F757470;  // 'outp'

// Of the system object.
inline constexpr AudioObjectPropertySelector kAudioHardwarePropertyDevices = 0x64657623;  // 'dev#'
inline constexpr AudioObjectPropertySelector kAudioHardwarePropertyDeviceForUID =
    0x64756964;  // 'duid'
inline constexpr AudioObjectPropertySelector kAudioHardwarePropertyDefaultInputDevice =
    0x64496E20;  // 'dIn '
inline constexpr AudioObjectPropertySelector kAudioHardwarePropertyDefaultOutputDevice =
    0x644F7574;  // 'dOut'
// Of devices, and the name of streams also.
inline constexpr AudioObjectPropertySelector kAudioObjectPropertyName = 0x6C6E616D;       // 'lnam'
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyDeviceUID = 0x75696420;  // 'uid '
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyStreams = 0x73746D23;    // 'stm#'
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyStreamConfiguration =
    0x736C6179;  // 'slay', channels of each stream
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyLatency = 0x6C746E63;  // 'ltnc'
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyNominalSampleRate =
    0x6E737274;  // 'nsrt'
inline constexpr AudioObjectPropertySelector kAudioDevicePropertyBufferFrameSize =
    0x6673697A;  // 'fsiz'

struct AudioObjectPropertyAddress {
  AudioObjectPropertySelector mSelector = 0;
  AudioObjectPropertyScope mScope = kAudioObjectPropertyScopeGlobal;
};

/// Called on the main queue.
using AudioObjectPropertyListenerProc = void (*)(AudioObjectID object,
                                                 const AudioObjectPropertyAddress& address,
                                                 void* refCon);

// --- time ---

inline constexpr std::uint32_t kAudioTimeStampSampleTimeValid = 1;
inline constexpr std::uint32_t kAudioTimeStampHostTimeValid = 2;
inline constexpr std::uint32_t kAudioTimeStampSampleHostTimeValid = 3;

struct AudioTimeStamp {
  double mSampleTime = 0;       ///< on the device's own running count, which never wraps
  std::uint64_t mHostTime = 0;  ///< ns
  std::uint32_t mFlags = 0;     ///< which of the two are valid
};

// --- units ---

/// A unit of a service; 0 is none.
using AudioUnit = std::uint32_t;
using AUGraph = std::uint32_t;
using AUNode = std::int32_t;

struct AudioComponentDescription {
  std::uint32_t componentType = 0;
  std::uint32_t componentSubType = 0;
  std::uint32_t componentManufacturer = 0;

  friend bool operator==(const AudioComponentDescription&,
                         const AudioComponentDescription&) = default;
};
/// A unit that plays on a device, or records from one: 'auou' 'ahal' 'appl'.
inline constexpr AudioComponentDescription kHALOutputComponent = {0x61756F75, 0x6168616C,
                                                                  0x6170706C};
/// A low-pass filter: 'aufx' 'lpas' 'appl'.
inline constexpr AudioComponentDescription kLowPassComponent = {0x61756678, 0x6C706173, 0x6170706C};
/// A converter of formats, the source of a graph: 'aufc' 'conv' 'appl'.
inline constexpr AudioComponentDescription kConverterComponent = {0x61756663, 0x636F6E76,
                                                                  0x6170706C};

using AudioUnitPropertyID = std::uint32_t;
using AudioUnitScope = std::uint32_t;
using AudioUnitElement = std::uint32_t;
using AudioUnitParameterID = std::uint32_t;
inline constexpr AudioUnitScope kAudioUnitScope_Global = 0;
inline constexpr AudioUnitScope kAudioUnitScope_Input = 1;
inline constexpr AudioUnitScope kAudioUnitScope_Output = 2;

inline constexpr AudioUnitPropertyID kAudioUnitProperty_SampleRate = 2;              // double
inline constexpr AudioUnitPropertyID kAudioUnitProperty_StreamFormat = 8;            // 40 bytes
inline constexpr AudioUnitPropertyID kAudioUnitProperty_MaximumFramesPerSlice = 14;  // u32
inline constexpr AudioUnitPropertyID kAudioUnitProperty_SetRenderCallback = 23;
/// A name for people, by which a server may show the unit's ports; characters,
/// without a zero at the end.
inline constexpr AudioUnitPropertyID kAudioUnitProperty_NickName = 54;
/// Listeners hear of another device, of the loss and return of this one, and of a
/// change of its channels. One that is away can be set; an id that never was one is
/// refused.
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_CurrentDevice = 2000;  // object id
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_IsRunning = 2001;      // u32, 0 or 1
/// Output scope: for each channel of the device, the channel of the graph that
/// goes there, or -1; 32-bit integers.
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_ChannelMap = 2002;
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_EnableIO = 2003;  // u32, 0 or 1
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_SetInputCallback = 2005;
/// 1, which it is at first: sample times count from 0 at the start; 0: they are the
/// device's own.
inline constexpr AudioUnitPropertyID kAudioOutputUnitProperty_StartTimestampsAtZero = 2007;  // u32

inline constexpr AudioUnitParameterID kLowPassParam_CutoffFrequency = 0;  // Hz
inline constexpr AudioUnitParameterID kLowPassParam_Resonance = 1;

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
  std::uint32_t mReserved = 0;

  friend bool operator==(const AudioStreamBasicDescription&,
                         const AudioStreamBasicDescription&) = default;
};
static_assert(sizeof(AudioStreamBasicDescription) == 40);

/// The most channels that a device offers in one direction.
inline constexpr std::uint32_t kMaxChannels = 128;
/// The most frames that a unit is asked for at once; longer cycles of a device
/// come in pieces of this.
inline constexpr std::uint32_t kMaxFramesPerSlice = 4096;

/// One channel.
struct AudioBuffer {
  std::uint32_t mNumberChannels = 1;
  std::uint32_t mDataByteSize = 0;
  float* mData = nullptr;
};
struct AudioBufferList {
  std::uint32_t mNumberBuffers = 0;
  std::array<AudioBuffer, kMaxChannels> mBuffers{};
};

using AudioUnitRenderActionFlags = std::uint32_t;

/// Fills the buffers, or is told that input is there. Whatever is not 0 silences
/// the cycle.
using AURenderCallback = OSStatus (*)(const host::RealtimeContext& realtime, void* refCon,
                                      AudioUnitRenderActionFlags& flags,
                                      const AudioTimeStamp& timeStamp, std::uint32_t bus,
                                      std::uint32_t frames, AudioBufferList* data);
struct AURenderCallbackStruct {
  AURenderCallback inputProc = nullptr;
  void* inputProcRefCon = nullptr;
};
static_assert(sizeof(AURenderCallbackStruct) == 16);

/// Called on any thread but a real-time one.
using AudioUnitPropertyListenerProc = void (*)(void* refCon, AudioUnit unit,
                                               AudioUnitPropertyID property, AudioUnitScope scope,
                                               AudioUnitElement element);

}  // namespace velor::audio
