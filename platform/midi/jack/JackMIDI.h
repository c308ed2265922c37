// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/Host.h"
#include "platform/jack/JackClient.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/jack/JackOutputLane.h"

namespace velor::midi {

/// The MIDI of a JACK server, or of PipeWire in its place.
///
/// A virtual endpoint is a JACK port. Sending from an output port to an endpoint
/// of the outside is a JACK port for that pair, connected to it, since different
/// destinations may be sent different bytes; the same for an input port and a
/// source. When a server that died is back, ports and connections are as before.
class JackMIDI final : public MIDIOutside, private jack::JackParticipant {
 public:
  /// `client` may be shared with other services.
  explicit JackMIDI(
      std::shared_ptr<jack::JackClient> client = std::make_shared<jack::JackClient>());
  ~JackMIDI() override;

  void start(MIDIInside& inside) override;
  void stop() override;
  void addVirtualSource(MIDIEndpointRef source, const std::string& name) override;
  void addVirtualDestination(MIDIEndpointRef destination, const std::string& name,
                             ReceiverRef receiver) override;
  void removeVirtual(MIDIEndpointRef endpoint) override;
  void connect(Named port, Named source, ReceiverRef receiver, void* sourceRefCon) override;
  void disconnect(MIDIPortRef port, MIDIEndpointRef source) override;
  OSStatus send(Named port, Named destination, const MIDIPacketList& packets) override;
  OSStatus received(MIDIEndpointRef source, const MIDIPacketList& packets) override;
  void removePort(MIDIPortRef port) override;
  void waitUntilSettled() override {
    mQueue.sync([] {});
  }
  void whenSettled(host::Queue& queue, host::Task task) override {
    mQueue.async([&queue, task = std::move(task)]() mutable { queue.async(std::move(task)); });
  }
  bool isConnected() override { return mJack->isConnected(); }
  std::string description() override;

 private:
  static constexpr std::size_t kMaxPorts = 256;

  // One JACK port of ours, from its creation in the object table to its removal
  // there, whatever servers come and go.
  struct Port : jack::JackPort {
    JackOutputLane lane;                // output
    ReceiverRef receiver;               // input
    void* sourceRefCon = nullptr;       // input
    bool inService = false;             // on mQueue
    std::uint64_t droppedReported = 0;  // on mQueue
  };
  using PortPtr = std::shared_ptr<Port>;
  // An endpoint of ours alone, or one of our ports and its peer.
  using Key = std::pair<MIDIObjectRef, MIDIObjectRef>;

  PortPtr addPort(Key key, const std::string& name, bool isOutput, const std::string& peer,
                  ReceiverRef receiver, void* sourceRefCon);
  void dropPorts(bool (*matches)(const Key&, Key), Key wanted);

  // On mQueue.
  void opened() override;
  void closed() override;
  void rescan(const std::set<std::string>& renewed) override;
  void report() override;
  void registerPort(const PortPtr& port);
  void connectPeer(Port& port);
  void unregisterPort(const PortPtr& port);
  void putInService(const PortPtr& port);
  void takeOutOfService(Port& port);
  std::string displayNameOf(jack_port_t* port, const std::string& fullName) const;

  void process(const host::RealtimeContext& realtime,
               const jack::JackCycle& cycle) noexcept override;

  host::Host& mHost;
  const std::shared_ptr<jack::JackClient> mJack;
  host::Queue& mQueue;
  MIDIInside* mInside = nullptr;

  // Under the object table's lock, in whose calls alone they are touched.
  std::map<Key, PortPtr> mPorts;

  // On mQueue.
  std::vector<PortPtr> mKnown;  // all of mPorts that have got here
  std::map<std::string, std::pair<MIDIEndpointRef, MIDIEndpointKind>> mEndpoints;

  std::array<std::atomic<Port*>, kMaxPorts> mActive{};
};

}  // namespace velor::midi
