// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "Kv-Appkit/KVShared.h"
#include "platform/host/Host.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "sim/BuiltinDiscovery.h"

namespace velor {

/// What the OSC server and its targets stand on, in force: the system's network on the
/// loopback interface alone, MIDI and discovery in this process.
class OSCService {
 public:
  OSCService() {
    midi::setService(&mMIDI);
    setUDPNetwork(&mNetwork);
    discovery::setService(&mDiscovery);
  }
  ~OSCService() {
    KVSharedInstances::clear();
    host::current().mainQueue().drainPending();
    discovery::setService(nullptr);
    setUDPNetwork(nullptr);
    midi::setService(nullptr);
  }
  OSCService(const OSCService&) = delete;
  OSCService& operator=(const OSCService&) = delete;

 private:
  midi::MIDIObjectTable mMIDI{nullptr};
  SystemUDPNetwork mNetwork{SystemUDPNetwork::Reach::loopback};
  discovery::BuiltinDiscovery mDiscovery;
};

}  // namespace velor
