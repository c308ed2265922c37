// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/midi/MIDITypes.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// One MIDI source or destination of the current service.
///
/// Any thread may call any operation; there is no lock. Cached values are read
/// once and then hold for the object's life, whatever happens to the
/// endpoint. A platform failure raises KVException "err" unless stated otherwise.
///
/// In an archive it is its unique id, by which it is found again in another run,
/// and the display name that it had.
class KVMIDIEndpoint : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "KVMIDIEndpoint";

  /// In archives; they must never change.
  static constexpr std::string_view kUniqueIDKey = "MIDIEndpoint.MIDIUniqueID";
  static constexpr std::string_view kDisplayNameKey = "MIDIEndpoint.DisplayName";

  explicit KVMIDIEndpoint(midi::MIDIEndpointRef endpoint) noexcept : mEndpoint(endpoint) {}
  ~KVMIDIEndpoint() override;
  KVMIDIEndpoint(const KVMIDIEndpoint&) = delete;
  KVMIDIEndpoint& operator=(const KVMIDIEndpoint&) = delete;

  /// Null when the service knows no endpoint of the stored id. One that has no
  /// display name there gets the stored one.
  static std::shared_ptr<KVMIDIEndpoint> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// The reference that the endpoint had when this was first called.
  std::uint64_t hash() const noexcept;

  /// The display name and the unique id in brackets, as far as they have been
  /// asked for already; for logs.
  std::string description() const;

  /// 0 once it is disposed of.
  midi::MIDIEndpointRef endpoint() const noexcept {
    return mEndpoint.load(std::memory_order_relaxed);
  }

  /// Cached.
  midi::MIDIUniqueID uniqueID() const;

  /// 0 always: no endpoint of this system has a device.
  std::int32_t deviceID() const noexcept { return mDeviceId; }

  /// For people. Cached, so that a later name on the platform is not seen here.
  /// None where the platform has none; never raises.
  std::optional<std::string> displayName() const;
  /// On the platform alone: what is cached stays.
  void setDisplayName(const std::string& displayName);

  /// None where the platform has none.
  std::optional<std::string> model() const;
  void setModel(const std::string& model);

  bool receivesMTC() const;
  void setReceivesMTC(bool receivesMTC);
  bool transmitsMTC() const;
  void setTransmitsMTC(bool transmitsMTC);

  /// By hash.
  bool isEqual(const KVMIDIEndpoint& other) const noexcept { return hash() == other.hash(); }

  /// Takes a virtual endpoint out of the service. When it returns, its read
  /// function runs no more; see MIDIEndpointDispose for where not to call this.
  void dispose();

 private:
  const std::string* keepDisplayName(std::string name) const;
  bool flag(midi::MIDIProperty property, const char* method) const;
  void setFlag(midi::MIDIProperty property, bool value, const char* method);

  std::atomic<midi::MIDIEndpointRef> mEndpoint;
  mutable std::atomic<const std::string*> mDisplayName{nullptr};  // owned; set once
  mutable std::atomic<midi::MIDIUniqueID> mId{0};
  const std::int32_t mDeviceId = 0;
  mutable std::atomic<std::uint64_t> mHash{0};
};

}  // namespace velor
