// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "Velor/devices/VLTimecodeDestinationDeviceDelegate.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/RecursiveMutex.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLClock;
class VLLTCGeneratorDevice;
class VLLTCReaderDevice;

/// The one place that knows all devices: the destinations, one for each MIDI
/// destination of the system with its switch for MTC, and the devices that the
/// user has made. It follows what appears and disappears, tells the clock where
/// MTC is to go, and keeps both lists in the state of the application.
///
/// A destination that disappears is taken out of the clock; was it switched on,
/// it is remembered by its unique id and switched on again when it returns.
///
/// Observable: "destinations" and "devices", told on the thread of the change and
/// with the lock held, and "state", which is all that `encodeState` writes. Any thread may call any
/// operation but the clock's queue and the MIDI read thread, for which a holder of the lock waits.
class VLDeviceManager final : public KVObservable, public VLTimecodeDestinationDeviceDelegate {
 public:
  using Destinations = std::vector<std::shared_ptr<VLTimecodeDestinationDevice>>;
  using Devices = std::vector<std::shared_ptr<VLDevice>>;

  /// The unique id of the virtual destination of a media window, which gets MTC
  /// from the beginning.
  static constexpr midi::MIDIUniqueID kMediaPlaybackUniqueID = KVFourCC("mply");

  /// Each has threads and ports of its own.
  static constexpr std::size_t kMostDevices = 64;
  /// For people; empty when they are not too many.
  static std::string tooManyDevices(std::size_t count);

  /// In archives; they must never change.
  static constexpr std::string_view kDevicesKey = "devices.manager";
  static constexpr std::string_view kDestinationsKey = "destinations.manager";

  /// The manager of the process. The first call is the main thread's.
  static VLDeviceManager& sharedManager();

  /// Copies.
  Destinations destinations() const;
  Devices devices() const;

  /// A new generator of LTC on the default output, "LTC Generator 1" and so on, with the
  /// next number that no device has. Its input becomes one of the destinations with the next
  /// change that the MIDI service reports. Queue: main. Raises KVException "err" where a
  /// service fails, and beyond kMostDevices.
  std::shared_ptr<VLLTCGeneratorDevice> createGenerator();

  /// A new reader of LTC on the default input, "LTC Reader 1" and so on, with a virtual
  /// source of that name. Queue: main. Raises as `createGenerator` does.
  std::shared_ptr<VLLTCReaderDevice> createrReader();

  /// Removes devices by their places in `devices`, with what they have made in the
  /// system and what they are as destinations. Raises for a place that is none.
  void removeDevicesAtIndexes(const std::set<std::size_t>& indexes);

  /// The device belongs to this run: encodeState leaves it out.
  void makeTemporary(const VLDevice& device);
  /// Switches the destination on for this run: encodeState writes it as switched off,
  /// until somebody else switches it. One that is on already stays as it is.
  void enableTemporarily(VLTimecodeDestinationDevice& destination);

  /// Brings the destinations in step with the system's. Runs on the main queue
  /// after each change of the MIDI setup.
  void destinationsChanged();

  /// The destination of this MIDI endpoint. Null for null and where there is none.
  std::shared_ptr<VLTimecodeDestinationDevice> destinationWithEndpoint(
      const std::shared_ptr<KVMIDIEndpoint>& endpoint) const;

  /// Tells the clock. Of a destination that has gone it only changes whether it is
  /// remembered. Waits for the clock's queue.
  void deviceDidEnableTransmit(VLTimecodeDestinationDevice& device, bool enable) override;

  void encodeState(store::KeyedArchiver& coder) const;
  /// The stored devices replace those that are there, which stay when one of the stored
  /// ones is damaged or there are more than kMostDevices; a stored destination that is
  /// switched on is switched on here. A failure is logged, and leaves what was done until
  /// then.
  void decodeState(store::KeyedUnarchiver& coder);
  /// Why the last one was not done to its end, for people; empty when it was.
  std::string decodeError() const;

 private:
  friend class KVShared<VLDeviceManager>;
  VLDeviceManager();
  ~VLDeviceManager() override;

  std::shared_ptr<VLTimecodeDestinationDevice> wrap(std::shared_ptr<KVMIDIEndpoint> endpoint);
  void removeVanished(const KVMIDICore::Endpoints& present);
  void addAppeared(const KVMIDICore::Endpoints& present);
  void requireRoomForOne() const;
  void observeEdits();
  void removeMakersOfEndpoints();
  void restoreDevices(store::KeyedUnarchiver& coder);
  void restoreDestinations(store::KeyedUnarchiver& coder);
  bool isListed(const VLTimecodeDestinationDevice& device) const;
  std::string nextName(const std::string& kind, unsigned& count) const;

  KVMIDICore& mCore;
  VLClock& mClock;

  mutable host::RecursiveMutex mLock;
  // All under mLock.
  Destinations mDestinations;
  Devices mDevices;
  unsigned mGenerators = 0;  // made so far
  unsigned mReaders = 0;     // made so far
  std::set<midi::MIDIUniqueID> mEnabledWhenBack;
  std::set<midi::MIDIUniqueID> mTemporaryDevices;   // by their endpoints
  std::set<midi::MIDIUniqueID> mTemporarySwitches;  // of destinations that are on
  std::vector<KVObserverToken> mEdits;              // of the devices
  bool _inStateRestauration = false;
  std::string mDecodeError;

  const host::WeakSelf<VLDeviceManager> mSelf;
  KVObserverToken mObserver;
};

}  // namespace velor
