// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <string>

#include "platform/midi/MIDIService.h"

namespace velor::midi {

/// For the failures that no working service gives.
class MockMIDIService : public MIDIService {
 public:
  MOCK_METHOD(OSStatus, MIDIClientCreate,
              (const std::string&, MIDINotifyProc, void*, MIDIClientRef*), (override));
  MOCK_METHOD(OSStatus, MIDIClientDispose, (MIDIClientRef), (override));
  MOCK_METHOD(OSStatus, MIDIOutputPortCreate, (MIDIClientRef, const std::string&, MIDIPortRef*),
              (override));
  MOCK_METHOD(OSStatus, MIDIInputPortCreate,
              (MIDIClientRef, const std::string&, MIDIReadProc, void*, MIDIPortRef*), (override));
  MOCK_METHOD(OSStatus, MIDIPortDispose, (MIDIPortRef), (override));
  MOCK_METHOD(OSStatus, MIDIPortConnectSource, (MIDIPortRef, MIDIEndpointRef, void*), (override));
  MOCK_METHOD(OSStatus, MIDIPortDisconnectSource, (MIDIPortRef, MIDIEndpointRef), (override));
  MOCK_METHOD(OSStatus, MIDISourceCreate, (MIDIClientRef, const std::string&, MIDIEndpointRef*),
              (override));
  MOCK_METHOD(OSStatus, MIDIDestinationCreate,
              (MIDIClientRef, const std::string&, MIDIReadProc, void*, MIDIEndpointRef*),
              (override));
  MOCK_METHOD(OSStatus, MIDIEndpointDispose, (MIDIEndpointRef), (override));
  MOCK_METHOD(std::size_t, MIDIGetNumberOfSources, (), (override));
  MOCK_METHOD(MIDIEndpointRef, MIDIGetSource, (std::size_t), (override));
  MOCK_METHOD(std::size_t, MIDIGetNumberOfDestinations, (), (override));
  MOCK_METHOD(MIDIEndpointRef, MIDIGetDestination, (std::size_t), (override));
  MOCK_METHOD(OSStatus, MIDIObjectFindByUniqueID, (MIDIUniqueID, MIDIObjectRef*), (override));
  MOCK_METHOD(OSStatus, MIDIObjectGetIntegerProperty, (MIDIObjectRef, MIDIProperty, std::int32_t*),
              (override));
  MOCK_METHOD(OSStatus, MIDIObjectSetIntegerProperty, (MIDIObjectRef, MIDIProperty, std::int32_t),
              (override));
  MOCK_METHOD(OSStatus, MIDIObjectGetStringProperty, (MIDIObjectRef, MIDIProperty, std::string*),
              (override));
  MOCK_METHOD(OSStatus, MIDIObjectSetStringProperty,
              (MIDIObjectRef, MIDIProperty, const std::string&), (override));
  MOCK_METHOD(OSStatus, MIDISend, (MIDIPortRef, MIDIEndpointRef, const MIDIPacketList*),
              (override));
  MOCK_METHOD(void, endSending, (MIDIPortRef, MIDIEndpointRef), (override));
  MOCK_METHOD(OSStatus, MIDIReceived, (MIDIEndpointRef, const MIDIPacketList*), (override));
  MOCK_METHOD(void, waitUntilSettled, (), (override));
  MOCK_METHOD(void, whenSettled, (host::Queue&, host::Task), (override));
  MOCK_METHOD(bool, isConnected, (), (override));
  MOCK_METHOD(std::string, serverDescription, (), (override));
};

}  // namespace velor::midi
