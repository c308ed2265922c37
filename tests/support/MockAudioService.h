// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/audio/AudioService.h"

namespace velor::audio {

/// For the failures that no working service gives, and for times that no device's
/// clock would tell.
class MockAudioService : public AudioService {
 public:
  using Address = AudioObjectPropertyAddress;

  MOCK_METHOD(OSStatus, AudioObjectGetPropertyData,
              (AudioObjectID, const Address&, std::uint32_t*, const std::string&), (override));
  MOCK_METHOD(OSStatus, AudioObjectGetPropertyData, (AudioObjectID, const Address&, double*),
              (override));
  MOCK_METHOD(OSStatus, AudioObjectGetPropertyData, (AudioObjectID, const Address&, std::string*),
              (override));
  MOCK_METHOD(OSStatus, AudioObjectGetPropertyData,
              (AudioObjectID, const Address&, std::vector<std::uint32_t>*), (override));
  MOCK_METHOD(OSStatus, AudioObjectAddPropertyListener,
              (AudioObjectID, const Address&, AudioObjectPropertyListenerProc, void*), (override));
  MOCK_METHOD(OSStatus, AudioObjectRemovePropertyListener,
              (AudioObjectID, const Address&, AudioObjectPropertyListenerProc, void*), (override));
  MOCK_METHOD(OSStatus, AudioDeviceTranslateTime,
              (AudioObjectID, const AudioTimeStamp&, AudioTimeStamp&), (noexcept, override));
  MOCK_METHOD(double, AudioGetHostClockFrequency, (), (const, noexcept, override));
  MOCK_METHOD(bool, AudioComponentFindNext, (const AudioComponentDescription&), (override));
  MOCK_METHOD(OSStatus, AudioComponentInstanceNew, (const AudioComponentDescription&, AudioUnit*),
              (override));
  MOCK_METHOD(OSStatus, AudioComponentInstanceDispose, (AudioUnit), (override));
  MOCK_METHOD(OSStatus, AudioUnitSetProperty,
              (AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, const void*,
               std::uint32_t),
              (override));
  MOCK_METHOD(OSStatus, AudioUnitGetProperty,
              (AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, void*,
               std::uint32_t*),
              (override));
  MOCK_METHOD(OSStatus, AudioUnitGetPropertyInfo,
              (AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, std::uint32_t*,
               bool*),
              (override));
  MOCK_METHOD(OSStatus, AudioUnitAddPropertyListener,
              (AudioUnit, AudioUnitPropertyID, AudioUnitPropertyListenerProc, void*), (override));
  MOCK_METHOD(OSStatus, AudioUnitRemovePropertyListenerWithUserData,
              (AudioUnit, AudioUnitPropertyID, AudioUnitPropertyListenerProc, void*), (override));
  MOCK_METHOD(OSStatus, AUParameterSet,
              (AudioUnit, AudioUnitParameterID, AudioUnitScope, AudioUnitElement, float,
               std::uint32_t),
              (override));
  MOCK_METHOD(OSStatus, AudioUnitInitialize, (AudioUnit), (override));
  MOCK_METHOD(OSStatus, AudioUnitReset, (AudioUnit, AudioUnitScope, AudioUnitElement), (override));
  MOCK_METHOD(OSStatus, AudioOutputUnitStart, (AudioUnit), (override));
  MOCK_METHOD(OSStatus, AudioOutputUnitStop, (AudioUnit), (override));
  MOCK_METHOD(OSStatus, AudioUnitRender,
              (const host::RealtimeContext&, AudioUnit, AudioUnitRenderActionFlags&,
               const AudioTimeStamp&, std::uint32_t, std::uint32_t, AudioBufferList*),
              (noexcept, override));
  MOCK_METHOD(OSStatus, NewAUGraph, (AUGraph*), (override));
  MOCK_METHOD(OSStatus, DisposeAUGraph, (AUGraph), (override));
  MOCK_METHOD(OSStatus, AUGraphAddNode, (AUGraph, const AudioComponentDescription&, AUNode*),
              (override));
  MOCK_METHOD(OSStatus, AUGraphOpen, (AUGraph), (override));
  MOCK_METHOD(OSStatus, AUGraphNodeInfo, (AUGraph, AUNode, AudioUnit*), (override));
  MOCK_METHOD(OSStatus, AUGraphConnectNodeInput,
              (AUGraph, AUNode, std::uint32_t, AUNode, std::uint32_t), (override));
  MOCK_METHOD(OSStatus, AUGraphInitialize, (AUGraph), (override));
  MOCK_METHOD(OSStatus, AUGraphStart, (AUGraph), (override));
  MOCK_METHOD(OSStatus, AUGraphStop, (AUGraph), (override));
  MOCK_METHOD(std::string, serverDescription, (), (override));
};

}  // namespace velor::audio
