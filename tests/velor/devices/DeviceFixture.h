// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLMIDIEndpointDevice.h"
#include "Velor/devices/VLReaderDevice.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/LogRecord.h"
#include "tests/support/MIDITest.h"

namespace velor {

inline constexpr store::KeyedClass kDeviceClasses[] = {
    store::KeyedClass::of<KVMIDIEndpoint>(), store::KeyedClass::of<VLMIDIEndpointDevice>(),
    store::KeyedClass::of<VLReaderDevice>(), store::KeyedClass::of<VLTimecodeDestinationDevice>()};

/// The shared manager with its clock on simulated time.
class DeviceFixture : public MIDITest {
 protected:
  static constexpr std::uint64_t kFrame25 = 40'000'000;  // ns

  static VLDeviceManager& manager() { return VLDeviceManager::sharedManager(); }
  static KVMIDICore& core() { return KVMIDICore::sharedCore(); }
  static VLClock& clock() { return VLClock::sharedClock(); }

  midi::MIDIEndpointRef appear(const std::string& name) {
    const auto ref = mOutside->appear(midi::MIDIEndpointKind::destination, name);
    mHost.settle();
    return ref;
  }
  void vanish(midi::MIDIEndpointRef ref) {
    mOutside->vanish(ref);
    mHost.settle();
  }
  /// A virtual destination of this process, which nobody has been told of yet.
  static midi::MIDIEndpointRef makeVirtual(const std::string& name, midi::MIDIUniqueID id) {
    return core().createDestination(
        core().defaultClient(), name, [](const midi::MIDIPacketList*, void*, void*) {}, nullptr,
        id);
  }
  static std::shared_ptr<VLTimecodeDestinationDevice> destinationOf(midi::MIDIEndpointRef ref) {
    return manager().destinationWithEndpoint(std::make_shared<KVMIDIEndpoint>(ref));
  }

  /// "+desk" for one that is switched on, "-desk" for one that is not.
  static std::vector<std::string> listed() {
    std::vector<std::string> result;
    for (const auto& destination : manager().destinations()) {
      result.push_back((destination->enable() ? "+" : "-") + destination->name().value_or("?"));
    }
    return result;
  }

  /// How many quarter frames go to the endpoint within 8 frames of a clock that
  /// runs: 2 frames make 8.
  std::ptrdiff_t quarterFramesTo(midi::MIDIEndpointRef ref) {
    clock().start();
    mOutside->sent.clear();
    mHost.advance(8 * kFrame25);
    const auto count = std::count_if(
        mOutside->sent.begin(), mOutside->sent.end(), [ref](const midi::FakeOutside::Sent& sent) {
          return sent.endpoint == ref && sent.bytes.size() == 2 && sent.bytes[0] == 0xF1;
        });
    clock().stop();
    mHost.settle();
    return count;
  }

  /// How often each property was announced since the last call.
  std::map<std::string, int> takeAnnounced() { return std::exchange(mAnnounced, {}); }
  void observe() {
    for (const char* key : {"destinations", "devices"}) {
      mTokens.push_back(manager().addObserver(
          key, [this](const std::string_view& changed) { ++mAnnounced[std::string(changed)]; }));
    }
  }

  static std::string state() {
    store::KeyedArchiver coder;
    manager().encodeState(coder);
    return coder.data().value();
  }
  static void restore(const std::string& document) {
    auto coder = store::KeyedUnarchiver::read(document, kDeviceClasses).value();
    manager().decodeState(coder);
  }
  static void restore(const std::vector<std::shared_ptr<VLDevice>>& devices) {
    store::KeyedArchiver coder;
    coder.encodeArray(devices, "devices.manager");
    restore(coder.data().value());
  }
  /// Another run of the application, in the same system.
  static void restart() { KVSharedInstances::clear(); }

  LogRecord mLog;

 private:
  std::map<std::string, int> mAnnounced;
  std::vector<KVObserverToken> mTokens;
};

using Announced = std::map<std::string, int>;
using Listed = std::vector<std::string>;

}  // namespace velor
