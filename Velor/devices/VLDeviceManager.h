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
#include "platform/host/Error.h"
#include "platform/host/RecursiveMutex.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLClock;
class VLLTCGeneratorDevice;
class VLLTCReaderDevice;

/// Knows all devices: a destination for each MIDI destination of the system, with its switch
/// for MTC, and the devices that the user has made. It follows ports that appear and
/// disappear, sets the clock's MTC destinations, and saves both lists in the state of the
/// application.
///
/// The clock stops sending to a destination that disappears. The manager remembers by unique
/// id the ones that were switched on, and switches them on again when they return.
///
/// Observable: "destinations" and "devices", notified on the thread of the change with the
/// lock held, and "state", which covers all that `encodeState` writes. Any thread may call any
/// operation, except the clock's queue and the MIDI read thread: a holder of the lock waits
/// for these.
class VLDeviceManager final : public KVObservable, public VLTimecodeDestinationDeviceDelegate {
 public:
  using Destinations = std::vector<std::shared_ptr<VLTimecodeDestinationDevice>>;
  using Devices = std::vector<std::shared_ptr<VLDevice>>;

  /// The unique id of the virtual destination of a media window, which gets MTC
  /// from the beginning.
  static constexpr midi::MIDIUniqueID kMediaPlaybackUniqueID = KVFourCC("mply");

  /// Each has threads and ports of its own.
  static constexpr std::size_t kMostDevices = 64;
  static Expected<> checkDeviceCount(std::size_t count);

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
  /// system and their destinations. Raises for an index that does not exist.
  void removeDevicesAtIndexes(const std::set<std::size_t>& indexes);

  /// The device belongs to this run: encodeState leaves it out.
  void makeTemporary(const VLDevice& device);
  /// Switches the destination on for this run: encodeState writes it as switched off,
  /// until somebody else switches it. One that is on already stays as it is.
  void enableTemporarily(VLTimecodeDestinationDevice& destination);

  /// Adds and removes destinations as the system's have changed. Runs on the main queue
  /// after each change of the MIDI setup.
  void destinationsChanged();

  /// The destination of this MIDI endpoint. Null when there is none, and for null.
  std::shared_ptr<VLTimecodeDestinationDevice> destinationWithEndpoint(
      const std::shared_ptr<KVMIDIEndpoint>& endpoint) const;

  /// Has the clock send MTC to the device, or stop sending. For a destination that has
  /// disappeared, changes only whether it is remembered. Waits for the clock's queue.
  void deviceDidEnableTransmit(VLTimecodeDestinationDevice& device, bool enable) override;

  void encodeState(store::KeyedArchiver& coder) const;
  /// Replaces the devices by the stored ones, unless one of these is damaged or there are
  /// more than kMostDevices. Switches on the destinations that are stored as switched on. A
  /// failure is logged too; what was done before it stays done.
  Expected<> decodeState(store::KeyedUnarchiver& coder);

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

  const host::WeakSelf<VLDeviceManager> mSelf;
  KVObserverToken mObserver;
};

}  // namespace velor
