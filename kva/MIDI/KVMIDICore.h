// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVShared.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// Posted on the main queue after each change of the MIDI setup; its object is a
/// std::int32_t, the midi::MIDINotificationMessageID. One change may give several.
inline constexpr const char* KVMIDINotification = "KVMIDINotification";

/// The process's one doorway to the current MIDI service: its clients, and its sources
/// and destinations as objects. A platform failure raises KVException "err".
///
/// Observable: "sources" and "destinations", announced on the main queue, where the
/// service reports changes.
class KVMIDICore : public KVObservable {
 public:
  using Endpoints = std::vector<std::shared_ptr<KVMIDIEndpoint>>;

  /// Made at first use, by the main thread, when a service is set. Ends with
  /// KVSharedInstances::clear, on the main thread and before the service; disposes of its
  /// clients then, and of all that was made with them.
  static KVMIDICore& sharedCore();

  /// The client that bears the application's name.
  midi::MIDIClientRef defaultClient();
  /// The one client of this name, made at first use. None stands for the
  /// application's name. Any thread. Realtime-safe: no.
  midi::MIDIClientRef clientWithName(const std::optional<std::string>& name);

  /// 0 where no object has the id.
  midi::MIDIObjectRef endpointWithUniqueId(midi::MIDIUniqueID uniqueID);
  /// Null where no source has the id.
  std::shared_ptr<KVMIDIEndpoint> sourceWithUniqueId(midi::MIDIUniqueID uniqueID);

  /// A virtual destination with the id given, or with a random one where that is
  /// taken. `readRef` must live until the endpoint is disposed of. When this
  /// raises, nothing is left behind.
  midi::MIDIEndpointRef createDestination(midi::MIDIClientRef client, const std::string& name,
                                          midi::MIDIReadProc readProc, void* readRef,
                                          midi::MIDIUniqueID uniqueID);
  /// A virtual source. It gets the id 1 whatever is given, or a random one where
  /// that is taken: stored setups know their sources by these ids.
  midi::MIDIEndpointRef createSource(midi::MIDIClientRef client, const std::string& name,
                                     midi::MIDIUniqueID uniqueID);

  /// Copies, in the order of the platform's lists. Any thread. Realtime-safe: no.
  Endpoints sources() const;
  Endpoints destinations() const;

  /// Reads the platform's lists again. An endpoint that was there before keeps its
  /// object. Any thread. Realtime-safe: no.
  void resyncDeviceList();

  /// Takes a change of the setup in: lists, observers, KVMIDINotification.
  /// Messages that tell of no change are ignored. Queue: main.
  void didReceiveMidiNotification(const midi::MIDINotification& notification);

  /// Identifies an endpoint from one refresh to the next: the unique id XOR
  /// the device id, an unknown property counting as 0. None for an endpoint whose
  /// properties cannot be read.
  std::optional<std::int32_t> keyForEndpoint(midi::MIDIEndpointRef endpoint) const;

 private:
  friend class KVShared<KVMIDICore>;
  KVMIDICore();
  ~KVMIDICore();

  using EndpointAt = midi::MIDIEndpointRef (*)(std::size_t index);
  Endpoints resync(const Endpoints& known, std::size_t count, EndpointAt endpointAt) const;

  mutable std::mutex mMutex;
  Endpoints mSources;       // under mMutex
  Endpoints mDestinations;  // under mMutex

  std::mutex mClientsMutex;
  std::map<std::string, midi::MIDIClientRef> mClients;  // under mClientsMutex
};

}  // namespace velor
