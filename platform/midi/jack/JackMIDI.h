// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/Host.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/jack/JackLibrary.h"
#include "platform/midi/jack/JackOutputLane.h"
#include "platform/midi/jack/JackTimeBase.h"

namespace velor::midi {

/// The MIDI of a JACK server, or of PipeWire in its place, as client "Velor".
///
/// A virtual endpoint is a JACK port. Sending from an output port to an endpoint
/// of the outside is a JACK port for that pair, connected to it, since different
/// destinations may be sent different bytes; the same for an input port and a
/// source. The server may be missing at the start and may die: it is looked for
/// twice a second, and when it is back, ports and connections are as before.
///
/// All calls that the library may be slow with run on the queue "velor.jack".
class JackMIDI final : public MIDIOutside {
 public:
  /// Whether a client library is installed; a server need not run.
  static bool available();

  JackMIDI();
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
  bool isConnected() override { return mConnected.load(); }
  std::string description() override;

 private:
  static constexpr std::size_t kMaxPorts = 256;

  // One JACK port of ours, from its creation in the object table to its removal
  // there, whatever servers come and go.
  struct Port {
    std::string name;
    bool isOutput = false;
    std::string peer;                   // to be connected to; empty for a virtual endpoint
    JackOutputLane lane;                // output
    ReceiverRef receiver;               // input
    void* sourceRefCon = nullptr;       // input
    jack_port_t* port = nullptr;        // on mQueue; fixed while in mActive
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
  void tryOpen();
  void openWith(std::shared_ptr<const JackLibrary> library);
  void closeClient();
  void registerPort(const PortPtr& port);
  void unregisterPort(const PortPtr& port);
  void connectPeer(Port& port);
  void putInService(const PortPtr& port);
  void takeOutOfService(Port& port);
  void awaitCycles(std::uint32_t count);
  void rescan();
  void portRegistered(jack_port_id_t id);
  void reportDropped(std::uint32_t session);
  std::string displayNameOf(jack_port_t* port, const std::string& fullName) const;
  void tell(bool connected, std::string description);

  // In the callbacks of the library.
  static int onProcess(jack_nframes_t frames, void* self);
  static void onShutdown(void* self);
  static void onInfoShutdown(jack_status_t code, const char* reason, void* self);
  static void onPortRegistration(jack_port_id_t port, int registered, void* self);
  static void onPropertyChange(jack_uuid_t subject, const char* key, jack_property_change_t change,
                               void* self);
  void process(jack_nframes_t frames) noexcept;
  void requestRescan();
  void serverWent();

  host::Host& mHost;
  MIDIInside* mInside = nullptr;

  // Under the object table's lock, in whose calls alone they are touched.
  std::map<Key, PortPtr> mPorts;

  // On mQueue.
  std::vector<PortPtr> mKnown;  // all of mPorts that have got here
  std::map<std::string, std::pair<MIDIEndpointRef, MIDIEndpointKind>> mEndpoints;
  std::set<std::string> mRenewed;  // ports registered since the last look
  bool mToldMissing = false;
  bool mEnding = false;

  // For the process callback. Library and client change only while no client is
  // active.
  std::shared_ptr<const JackLibrary> mLibrary;
  jack_client_t* mClient = nullptr;
  std::array<std::atomic<Port*>, kMaxPorts> mActive{};
  JackTimeBase mTimeBase;
  // Odd while the callback runs.
  std::atomic<std::uint32_t> mCycles{0};

  std::atomic<bool> mRescanPending{false};
  std::atomic<std::uint32_t> mSession{0};  // counts servers
  std::atomic<bool> mConnected{false};
  std::mutex mDescriptionMutex;
  std::string mDescription;  // under mDescriptionMutex
  host::Queue mQueue{"velor.jack"};
};

}  // namespace velor::midi
