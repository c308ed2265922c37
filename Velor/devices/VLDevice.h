// SPDX-License-Identifier: MIT
#pragma once

#include <any>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObservable.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

inline constexpr std::uint32_t kVLDeviceStatusIdle = 0;
inline constexpr std::uint32_t kVLDeviceStatusRunning = KVFourCC("run ");
inline constexpr std::uint32_t kVLDeviceStatusFreewheeling = KVFourCC("frwl");
inline constexpr std::uint32_t kVLDeviceStatusError = KVFourCC("!err");

/// The type of devices that stand for a MIDI endpoint and nothing else.
inline constexpr std::uint32_t kVLDeviceTypeMIDI = KVFourCC("midi");

/// The key of a device's MIDI endpoint, a std::shared_ptr<KVMIDIEndpoint>.
inline constexpr std::string_view kKVMIDIEndpointDevice = "KVMIDIEndpointDevice";

/// Whatever takes part in timecode traffic: a MIDI destination of the system, a
/// reader, a generator. Any thread may ask.
class VLDevice : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLDevice";

  /// The value under the key, of the type that the key stands for; empty if the device
  /// has none.
  virtual std::any getPropertyForKey(std::string_view key) const = 0;
  /// Keys that the device does not know are ignored.
  virtual void setProperty(std::any value, std::string_view key) = 0;

  /// For people. None if the device's endpoint is gone.
  virtual std::optional<std::string> name() const = 0;
  /// The same in every run.
  virtual std::optional<std::string> uuid() const = 0;
  /// A four-character code.
  virtual std::uint32_t type() const = 0;
  /// One of the four above.
  virtual std::uint32_t deviceStatus() const = 0;

  /// Makes what a device that was read from an archive needs of the system: its endpoint,
  /// its audio device. Until then it holds stored values only, and nothing is reported. Once.
  /// Raises KVException "err" where a service fails.
  virtual void open() {}

  /// Its endpoint is one that it has made, and that `open` makes again.
  virtual bool makesItsEndpoint() const { return false; }

  /// Calls `edited` after each change of what is archived, as long as the tokens live, on
  /// the thread of the change.
  virtual std::vector<KVObserverToken> observeEdits(const KVObservable::Observer& /*edited*/) {
    return {};
  }

  /// The user has removed the device: what it has made in the system goes.
  virtual void destroy() {}

  virtual std::uint64_t hash() const = 0;
  virtual bool isEqual(const VLDevice& other) const = 0;
  /// For logs.
  virtual std::string description() const = 0;

  /// The property of kKVMIDIEndpointDevice; null for a device without an endpoint.
  std::shared_ptr<KVMIDIEndpoint> midiEndpoint() const {
    const std::any property = getPropertyForKey(kKVMIDIEndpointDevice);
    const auto* endpoint = std::any_cast<std::shared_ptr<KVMIDIEndpoint>>(&property);
    return endpoint != nullptr ? *endpoint : nullptr;
  }
};

}  // namespace velor
