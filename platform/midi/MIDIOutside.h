// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/host/Queue.h"
#include "platform/host/Realtime.h"
#include "platform/host/Task.h"
#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// The receiver of packets from the outside: a port that is connected to a source, or a
/// virtual destination.
struct ReceiverRef {
  std::uint32_t slot = 0;
  std::uint32_t generation = 0;
};

/// An object table, as its back end sees it.
class MIDIInside {
 public:
  virtual ~MIDIInside() = default;

  /// An endpoint of the outside is there. An endpoint of a known `portName` keeps its
  /// reference and unique id; `displayName` may have changed. Not from a real-time
  /// callback.
  virtual MIDIEndpointRef endpointAppeared(MIDIEndpointKind kind, const std::string& portName,
                                           const std::string& displayName) = 0;
  /// The endpoint is absent until it appears again.
  virtual void endpointVanished(MIDIEndpointRef endpoint) = 0;

  /// Hands one packet to a read function; `time` is the host time of the packet.
  /// Realtime-safe. False, and counted, when too many packets wait already.
  virtual bool deliver(const host::RealtimeContext& realtime, ReceiverRef receiver,
                       void* sourceRefCon, MIDITimeStamp time, const std::uint8_t* data,
                       std::size_t length) noexcept = 0;
};

/// A back end of the object table: the MIDI of other programs and of hardware. The table
/// calls it with its lock held, so none of these may wait or call back in; slow work goes
/// to a queue of the back end's own.
class MIDIOutside {
 public:
  virtual ~MIDIOutside() = default;

  /// Begins, with the table as the other side; endpoints that are there at once
  /// are announced before it returns. Called without the lock.
  virtual void start(MIDIInside& inside) = 0;
  /// Ends; nothing is announced or delivered after it. Called without the lock.
  virtual void stop() = 0;

  virtual void addVirtualSource(MIDIEndpointRef source, const std::string& name) = 0;
  virtual void addVirtualDestination(MIDIEndpointRef destination, const std::string& name,
                                     ReceiverRef receiver) = 0;
  virtual void removeVirtual(MIDIEndpointRef endpoint) = 0;

  /// An endpoint of the outside by its reference and the name with which it appeared; our
  /// own port by its reference and name.
  struct Named {
    MIDIObjectRef ref;
    const std::string& name;
  };

  /// Connections outlast the absence of the source.
  virtual void connect(Named port, Named source, ReceiverRef receiver, void* sourceRefCon) = 0;
  virtual void disconnect(MIDIPortRef port, MIDIEndpointRef source) = 0;

  /// To an endpoint of the outside that is there.
  virtual OSStatus send(Named port, Named destination, const MIDIPacketList& packets) = 0;
  /// From a virtual source to whoever listens outside.
  virtual OSStatus received(MIDIEndpointRef source, const MIDIPacketList& packets) = 0;
  /// The pair's resources are freed after the last packet that was sent.
  virtual void endSending(MIDIPortRef port, MIDIEndpointRef destination) = 0;
  /// The output port is disposed of; all that serves it goes.
  virtual void removePort(MIDIPortRef port) = 0;

  /// Called without the lock.
  virtual void waitUntilSettled() = 0;
  /// Called without the lock.
  virtual void whenSettled(host::Queue& queue, host::Task task) = 0;
  virtual bool isConnected() = 0;
  virtual std::string description() = 0;
};

}  // namespace velor::midi
