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
#include <vector>

#include "platform/host/Host.h"
#include "platform/jack/JackConnections.h"
#include "platform/jack/JackCycles.h"
#include "platform/jack/JackLibrary.h"
#include "platform/jack/JackParticipant.h"
#include "platform/jack/JackPort.h"
#include "platform/jack/JackTimeBase.h"

namespace velor::jack {

/// The client "Velor" of a JACK server, or of PipeWire in its place, for all
/// services that have a back end there. The server may be missing at the start
/// and may die: the client looks for one twice a second while anybody participates.
///
/// All calls of the library that may be slow run on the queue "velor.jack".
class JackClient {
 public:
  /// Whether a client library is installed; a server need not run.
  static bool available();

  JackClient();
  /// Nobody participates any more.
  ~JackClient();
  JackClient(const JackClient&) = delete;
  JackClient& operator=(const JackClient&) = delete;

  host::Queue& queue() noexcept { return mQueue; }

  // --- any thread ---

  bool isConnected() const noexcept { return mConnected.load(); }
  /// The server in a few words for people; empty without one.
  std::string description() const;
  /// Frames a second, and frames in a cycle, as the latest cycle had them; a change
  /// has a rescan follow.
  std::uint32_t sampleRate() const noexcept { return mSampleRate.load(); }
  std::uint32_t period() const noexcept { return mPeriod.load(); }
  /// Cycles that came too late, by the server's reports since it was found.
  std::uint32_t xruns() const noexcept { return mXruns.load(); }

  // --- on the queue ---

  /// The first participant makes the client look for a server. If there is one, `opened` and
  /// `rescan` are called before this returns.
  void attach(JackParticipant& participant);
  /// No call comes any more when this returns. The last participant closes the client and
  /// gets `closed`; any other unregisters its ports itself.
  void detach(JackParticipant& participant);

  /// Null while there is no server.
  jack_client_t* client() const noexcept { return mClient; }

  /// `order`: the place of the port among others, for people. Without a server,
  /// or when the server refuses, `port` stays null; the refusal is logged.
  void registerPort(JackPort& port, int order);
  void unregisterPort(JackPort& port);
  /// As in JackConnections. A refused connection is tried again at every rescan. It carries
  /// data from the cycle after the next; what is written before is lost.
  bool connectPeer(JackPort& port) { return mConnections.connectPeer(port); }
  void disconnectPeer(JackPort& port) { mConnections.disconnectPeer(port); }
  /// As JackCycles::await.
  void awaitCycles(std::uint32_t count) { mCycles.await(count); }

  // --- on the queue while there is a server, and in `process` ---

  const JackLibrary& library() const noexcept { return *mLibrary; }

 private:
  static constexpr std::size_t kMaxParticipants = 4;

  // On mQueue.
  void tryOpen();
  void retryLater();
  void openWith(std::shared_ptr<const JackLibrary> library);
  void closeClient();
  void rescan();
  void reconnectSoon();
  void portRegistered(jack_port_id_t id);
  void report(std::uint32_t session);
  void xrunsChangedSoon();
  /// Removes the names of our ports from the server's store. A jackd that was killed leaves
  /// them there, and its successor gives their uuids to ports of any client.
  void forgetNames();
  void tellConnected();
  void tell(bool connected, std::string description);

  // In the callbacks of the library.
  static int onProcess(jack_nframes_t frames, void* self);
  static void onShutdown(void* self);
  static void onInfoShutdown(jack_status_t code, const char* reason, void* self);
  static void onPortRegistration(jack_port_id_t port, int registered, void* self);
  static void onPortConnect(jack_port_id_t a, jack_port_id_t b, int connected, void* self);
  static int onGraphOrder(void* self);
  static int onXrun(void* self);
  static void onPropertyChange(jack_uuid_t subject, const char* key, jack_property_change_t change,
                               void* self);
  void process(jack_nframes_t frames) noexcept;
  void heed(const host::RealtimeContext& realtime, const JackCycle& cycle) noexcept;
  void requestRescan();
  void serverWent();

  host::Host& mHost;
  JackCycles mCycles;
  JackConnections mConnections;

  // On mQueue.
  std::vector<JackParticipant*> mParticipants;
  std::vector<JackPort*> mPorts;              // those that are registered
  std::map<jack_uuid_t, std::string> mNamed;  // the names for people of our ports
  std::set<std::string> mRenewed;             // ports registered since the last look
  bool mToldMissing = false;
  bool mToldShort = false;  // of descriptors
  bool mRetryPending = false;
  bool mXrunsPending = false;

  // For the process callback. Library and client change only while no client is
  // active.
  std::shared_ptr<const JackLibrary> mLibrary;
  jack_client_t* mClient = nullptr;
  std::array<std::atomic<JackParticipant*>, kMaxParticipants> mActive{};
  JackTimeBase mTimeBase;
  std::atomic<std::uint32_t> mSampleRate{0};
  std::atomic<std::uint32_t> mPeriod{0};
  std::atomic<std::uint32_t> mXruns{0};
  std::uint32_t mHeededXruns = 0;

  std::atomic<bool> mRescanPending{false};
  bool mReconnectPending = false;          // the queue's
  std::atomic<std::uint32_t> mSession{0};  // counts servers
  std::atomic<bool> mConnected{false};
  mutable std::mutex mDescriptionMutex;
  std::string mDescription;  // under mDescriptionMutex
  host::Queue mQueue{"velor.jack"};
};

}  // namespace velor::jack
