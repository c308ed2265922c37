// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObservable.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "Velor/mtc/VLMTCParser.h"
#include "kvtimecode/generator/KVLTCGenerator.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

inline constexpr std::uint32_t kVLDeviceTypeLTCGenerator = KVFourCC("ltcg");

/// A generator of LTC as a destination like any other: MTC that arrives at a virtual
/// MIDI input of its own, from the clock or from another program, goes out as LTC.
/// The input goes with the device, and comes back under its id from an archive.
///
/// Observable, on the main queue: "deviceStatus". Made and ended on the main queue.
class VLLTCGeneratorDevice final : public VLTimecodeDestinationDevice, public KVObservable {
 public:
  static constexpr std::string_view kClassName = "VLLTCGeneratorDevice";

  /// In archives; they must never change.
  static constexpr std::string_view kNameKey = "name";
  static constexpr std::string_view kUniqueIDKey = "MIDIUniqueID";
  static constexpr std::string_view kGeneratorKey = "generator";

  /// On the default output, with an input of this name. Raises KVException "err" where
  /// one of the services fails.
  static std::shared_ptr<VLLTCGeneratorDevice> initWithMIDIClient(midi::MIDIClientRef client,
                                                                  const std::string& name);
  ~VLLTCGeneratorDevice() override;

  static std::shared_ptr<VLLTCGeneratorDevice> initWithCoder(store::KeyedUnarchiver& coder);
  void open() override;
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  const std::shared_ptr<KVLTCGenerator>& generator() const noexcept { return mGenerator; }

  std::vector<KVObserverToken> observeEdits(const KVObservable::Observer& edited) override;
  bool makesItsEndpoint() const override { return true; }
  std::uint32_t type() const override { return kVLDeviceTypeLTCGenerator; }
  std::uint32_t deviceStatus() const override { return mGenerator->deviceStatus(); }

 private:
  VLLTCGeneratorDevice(std::shared_ptr<KVLTCGenerator> generator, midi::MIDIUniqueID uniqueID);
  void createInput(midi::MIDIClientRef client, const std::string& name);

  const std::shared_ptr<KVLTCGenerator> mGenerator;
  const std::shared_ptr<VLMTCParser> mMTCParser;  // the input's
  const midi::MIDIUniqueID mMIDIUniqueId;
  std::string mStoredName;  // of the input, until `open` makes it
  KVObserverToken mGeneratingToken;
};

}  // namespace velor
