// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/Realtime.h"
#include "platform/midi/MIDIOutside.h"

namespace velor::midi {

/// The MIDI of other programs, played by a test: endpoints appear and vanish as
/// it says, what they send comes in, and what goes out is kept. Give it to an
/// object table, which owns it, and keep a pointer. For the simulated host.
class FakeOutside final : public MIDIOutside {
 public:
  /// One packet that left the process. `port` is 0 for one that came from a
  /// virtual source, which is then the endpoint.
  struct Sent {
    MIDIPortRef port;
    std::string portName;
    MIDIEndpointRef endpoint;
    MIDITimeStamp time;
    std::vector<std::uint8_t> bytes;
  };
  struct Virtual {
    MIDIEndpointRef endpoint;
    std::string name;
    MIDIEndpointKind kind;
    ReceiverRef receiver;  // of a destination
  };
  struct Connection {
    MIDIPortRef port;
    MIDIEndpointRef source;
    ReceiverRef receiver;
    void* sourceRefCon;
  };

  MIDIEndpointRef appear(MIDIEndpointKind kind, const std::string& portName) {
    return appear(kind, portName, portName);
  }
  MIDIEndpointRef appear(MIDIEndpointKind kind, const std::string& portName,
                         const std::string& displayName) {
    return mInside->endpointAppeared(kind, portName, displayName);
  }
  void vanish(MIDIEndpointRef endpoint) { mInside->endpointVanished(endpoint); }

  /// A source of the outside sends to every port that is connected to it.
  void play(MIDIEndpointRef source, MIDITimeStamp time, const std::vector<std::uint8_t>& bytes) {
    const host::RealtimeContext realtime;
    for (const Connection& connection : connections) {
      if (connection.source == source) {
        mInside->deliver(realtime, connection.receiver, connection.sourceRefCon, time, bytes.data(),
                         bytes.size());
      }
    }
  }

  void start(MIDIInside& inside) override { mInside = &inside; }
  void stop() override {}
  void addVirtualSource(MIDIEndpointRef source, const std::string& name) override {
    virtuals.push_back({source, name, MIDIEndpointKind::source, {}});
  }
  void addVirtualDestination(MIDIEndpointRef destination, const std::string& name,
                             ReceiverRef receiver) override {
    virtuals.push_back({destination, name, MIDIEndpointKind::destination, receiver});
  }
  void removeVirtual(MIDIEndpointRef endpoint) override {
    std::erase_if(virtuals, [endpoint](const Virtual& v) { return v.endpoint == endpoint; });
  }
  void connect(Named port, Named source, ReceiverRef receiver, void* sourceRefCon) override {
    disconnect(port.ref, source.ref);
    connections.push_back({port.ref, source.ref, receiver, sourceRefCon});
  }
  void disconnect(MIDIPortRef port, MIDIEndpointRef source) override {
    std::erase_if(connections, [port, source](const Connection& c) {
      return c.port == port && c.source == source;
    });
  }
  OSStatus send(Named port, Named destination, const MIDIPacketList& packets) override {
    keep(port.ref, port.name, destination.ref, packets);
    sending();
    return 0;
  }
  OSStatus received(MIDIEndpointRef source, const MIDIPacketList& packets) override {
    keep(0, {}, source, packets);
    return 0;
  }
  void endSending(MIDIPortRef, MIDIEndpointRef destination) override {
    ended.push_back(destination);
  }
  void removePort(MIDIPortRef) override {}
  void waitUntilSettled() override {}
  void whenSettled(host::Queue& queue, host::Task task) override { queue.async(std::move(task)); }
  bool isConnected() override { return isServerThere; }
  std::string description() override { return "a test"; }

  std::vector<Sent> sent;
  std::vector<Virtual> virtuals;
  std::vector<Connection> connections;
  std::vector<MIDIEndpointRef> ended;
  bool isServerThere = true;
  std::function<void()> sending = [] {};  ///< called on the sender's thread

 private:
  void keep(MIDIPortRef port, const std::string& portName, MIDIEndpointRef endpoint,
            const MIDIPacketList& packets) {
    forEachPacket(packets, [&](const MIDIPacket& packet) {
      sent.push_back(
          {port, portName, endpoint, packet.timeStamp, {packet.data, packet.data + packet.length}});
    });
  }

  MIDIInside* mInside = nullptr;
};

}  // namespace velor::midi
