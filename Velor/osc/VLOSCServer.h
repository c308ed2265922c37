// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/osc/VLOSCHostFilterEntry.h"
#include "Velor/osc/VLOSCHostFilterEntryDelegate.h"
#include "Velor/osc/VLOSCServerDelegate.h"
#include "Velor/osc/VLOSCServerSettings.h"
#include "Velor/osc/VLOScRxDelegate.h"
#include "platform/discovery/NSNetService.h"
#include "platform/host/Error.h"
#include "platform/host/Host.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLOscRx;

/// Lets other machines command the clock by OSC, those alone that the user has
/// ticked in the list of hosts. A host that is refused appears there, not ticked,
/// and nothing that it sends is read.
///
/// Observable: "running", "url", "hostFilter", "filterMode". Main queue, where
/// nothing else is said.
class VLOSCServer final : public KVObservable,
                          public VLOScRxDelegate,
                          public VLOSCHostFilterEntryDelegate {
 public:
  using Entries = std::vector<std::shared_ptr<VLOSCHostFilterEntry>>;

  /// Everyone may command.
  static constexpr std::int32_t kPromiscuousMode = static_cast<std::int32_t>(KVFourCC("proi"));
  /// Those may who are ticked, as with any other mode.
  static constexpr std::int32_t kFilteringMode = KVFourCC("filt");

  static constexpr std::uint16_t kDefaultPort = 7770;
  /// Of the TXT record.
  static constexpr std::string_view kUIDKey = "uid";

  /// Anyone can send from any number of made-up addresses: of the entries that are
  /// not ticked this many stay in the list, those that came last. Who is ticked stays.
  static constexpr std::size_t kMostUntickedEntries = 256;
  /// Refused hosts are added to the list no oftener than this, in ns, so that a flood
  /// of them does not keep the main queue from its work.
  static constexpr std::uint64_t kListingInterval = 100'000'000;

  /// The server of the process. The first call is the main thread's.
  static VLOSCServer& sharedServer();

  /// Held weakly.
  void setDelegate(std::weak_ptr<VLOSCServerDelegate> delegate) { mDelegate = std::move(delegate); }

  // --- the service. Any thread but velor.osc.

  /// For a stopped server.
  GCDAsyncUdpSocketResult startUdPServerAtPort(std::uint16_t port);
  void stop();
  /// Stops it and starts it at this port; the settings keep what they had.
  GCDAsyncUdpSocketResult startForThisRunAtPort(std::uint16_t port);
  /// The port of the last start, if that failed.
  std::optional<std::uint16_t> refusedPort() const;
  bool running() const;
  /// 0 while it does not run.
  std::uint16_t port() const;
  std::optional<std::string> url() const;
  /// Another for each start, by which the service is known as our own; empty before
  /// the first.
  std::string uuid() const;

  // --- who may command

  std::int32_t filterMode() const noexcept { return mFilterMode.load(); }
  void setFilterMode(std::int32_t filterMode);

  std::size_t countOfHostFilter() const { return mHostFilter.size(); }
  /// Raises for an index that is none, as all below.
  std::shared_ptr<VLOSCHostFilterEntry> objectInHostFilterAtIndex(std::size_t index) const;
  void addHostFilterObject(const std::shared_ptr<VLOSCHostFilterEntry>& entry);
  /// The entries stand at these indexes then; as many as those.
  void insertHostFilter(const Entries& entries, const std::set<std::size_t>& indexes);
  /// Its host is refused then, also if another ticked entry names it too.
  void removeHostFilterObject(const std::shared_ptr<VLOSCHostFilterEntry>& entry);
  void removeHostFilterAtIndexes(const std::set<std::size_t>& indexes);

  // --- settings

  Expected<std::shared_ptr<VLOSCServerSettings>> settingsDictionary() const;
  /// Restores the ticked hosts, and starts the server if it was running. Fails with
  /// kGCDAsyncUdpSocketOtherError when the list of hosts cannot be read, which then stays as
  /// it is; with other codes when the server cannot start. Any thread but velor.osc; the list
  /// changes on the main queue.
  GCDAsyncUdpSocketResult loadSettingsDictionary(const VLOSCServerSettings& settings);

  // --- from the receiver and the entries

  bool allowFromHost(const std::string& host) override;
  void commandFromAddressChangePlaybackStatus(const SocketAddress& address, bool play) override;
  void commandFromAddressChangePlaybackSpeed(const SocketAddress& address, float speed) override;
  void commandFromAddressChangePrerollStatus(const SocketAddress& address, bool preroll) override;
  void commandFromAddressChangeArmed(const SocketAddress& address, bool armed) override;
  void commandFromAddressGotoMarker(const SocketAddress& address, std::int32_t marker) override;
  void addMarkerCommandFromAddress(const SocketAddress& address) override;
  void hostFilterEntryChangedEnabled(VLOSCHostFilterEntry& entry, bool enabled) override;

 private:
  friend class KVShared<VLOSCServer>;
  VLOSCServer();
  ~VLOSCServer() override;

  // The settings of the next start.
  struct NextStart {
    bool running;
    std::uint16_t port;
  };

  std::shared_ptr<VLOscRx> oscRx() const;
  NextStart nextStart() const;
  void publish(std::uint16_t port);
  void adopt(VLOSCHostFilterEntry& entry);
  void release(VLOSCHostFilterEntry& entry);
  void noteRefused(const std::string& host);  // under mHostsMutex
  void listRefused();

  host::Host& mHost;
  std::weak_ptr<VLOSCServerDelegate> mDelegate;
  std::atomic<std::int32_t> mFilterMode{kFilteringMode};
  Entries mHostFilter;

  mutable std::mutex mServiceMutex;
  std::shared_ptr<VLOscRx> mOscRx;                       // under mServiceMutex
  std::string mUUID;                                     // under mServiceMutex
  std::shared_ptr<discovery::NSNetService> mNetService;  // under mServiceMutex
  std::optional<std::uint16_t> mRefusedPort;             // under mServiceMutex
  std::optional<NextStart> mNextStart;                   // under mServiceMutex; null: as now

  std::mutex mHostsMutex;
  // Under mHostsMutex.
  std::unordered_set<std::string> mHostFilterHash;  // the ticked ones
  std::deque<std::string> mRefused;                 // to be listed
  std::unordered_set<std::string> mKnown;           // listed or to be listed
  bool mListingPosted = false;
  std::uint64_t mNextListing = 0;  // host time, ns

  const host::WeakSelf<VLOSCServer> mSelf;
};

}  // namespace velor
