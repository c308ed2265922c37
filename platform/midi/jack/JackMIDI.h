// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/Host.h"
#include "platform/host/PriorityMutex.h"
#include "platform/host/WeakSelf.h"
#include "platform/jack/JackClient.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/jack/JackOutputLane.h"

namespace velor::midi {

/// The MIDI of a JACK server, or of PipeWire in its place.
///
/// A virtual endpoint is a JACK port. Sending from an output port to an endpoint
/// of the outside takes a JACK port for that pair, connected to it, since different
/// destinations may be sent different bytes; the same for an input port and a
/// source. When a server that died is back, ports and connections are as before.
///
/// A connection carries data from the cycle after the next. Ports that are due
/// together are registered and connected first, and then waited for once. Packets
/// wait in the lane of their port until then.
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
  void endSending(MIDIPortRef port, MIDIEndpointRef destination) override;
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
  // One JACK port of ours, from its creation in the object table to its removal
  // there, whatever servers come and go.
  struct Port : jack::JackPort {
    JackOutputLane lane;                // output
    ReceiverRef receiver;               // input
    void* sourceRefCon = nullptr;       // input
    bool isConnected = false;           // to its peer; on mQueue
    std::uint64_t droppedReported = 0;  // on mQueue
    bool isEnding = false;              // under mPortsMutex: goes once its lane is empty
  };
  using PortPtr = std::shared_ptr<Port>;
  using PortList = std::vector<PortPtr>;
  // An endpoint of ours alone, or one of our ports and its peer.
  using Key = std::pair<MIDIObjectRef, MIDIObjectRef>;
  using Endpoints = std::map<std::string, std::pair<MIDIEndpointRef, MIDIEndpointKind>>;

  PortPtr addPort(Key key, const std::string& name, bool isOutput, const std::string& peer,
                  ReceiverRef receiver, void* sourceRefCon);
  template <class Matches>
  void dropPorts(const Matches& matches);

  // On mQueue.
  void opened() override;
  void closed() override;
  void rescan(const std::set<std::string>& renewed) override;
  void report() override;
  void openDue();
  void open(const PortList& ports);
  void connectPeers(const PortList& ports);
  void close(const PortPtr& port);
  void closeWhenSent(Key key);
  void closeLater(Key key);
  void publish();
  void awaitCycles(std::uint32_t count);
  std::string displayNameOf(jack_port_t* port, const std::string& fullName) const;

  void process(const host::RealtimeContext& realtime,
               const jack::JackCycle& cycle) noexcept override;

  host::Host& mHost;
  const std::shared_ptr<jack::JackClient> mJack;
  host::Queue& mQueue;
  MIDIInside* mInside = nullptr;

  // Taken within the object table's lock, by calls from there, and on mQueue.
  host::PriorityMutex mPortsMutex;
  std::map<Key, PortPtr> mPorts;  // under mPortsMutex
  PortList mDue;                  // under mPortsMutex: those that are to be opened

  // On mQueue.
  PortList mKnown;  // all of mPorts but those that are due
  Endpoints mEndpoints;
  // The last one is what the process callback reads; it may still read the others.
  std::vector<std::unique_ptr<const PortList>> mLists;
  std::atomic<const PortList*> mActive{nullptr};

  // For timed jobs on mQueue; the client may outlast this. None after `stop`.
  std::optional<host::WeakSelf<JackMIDI>> mSelf;
};

}  // namespace velor::midi
