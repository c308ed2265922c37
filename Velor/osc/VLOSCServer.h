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

/// Lets other machines control the clock by OSC, if the user has ticked them in the list of
/// hosts. A refused host appears in the list, not ticked; its datagrams are not read.
///
/// Observable: "running", "url", "hostFilter", "filterMode". Queue: main, unless stated
/// otherwise.
class VLOSCServer final : public KVObservable,
                          public VLOScRxDelegate,
                          public VLOSCHostFilterEntryDelegate {
 public:
  using Entries = std::vector<std::shared_ptr<VLOSCHostFilterEntry>>;

  /// Every host may send commands.
  static constexpr std::int32_t kPromiscuousMode = static_cast<std::int32_t>(KVFourCC("proi"));
  /// Only ticked hosts may; any other mode means the same.
  static constexpr std::int32_t kFilteringMode = KVFourCC("filt");

  static constexpr std::uint16_t kDefaultPort = 7770;
  /// Key in the TXT record.
  static constexpr std::string_view kUIDKey = "uid";

  /// Anyone can send from any number of fake addresses, so the list keeps only so many
  /// entries that are not ticked, the latest. Ticked entries stay.
  static constexpr std::size_t kMostUntickedEntries = 256;
  /// Least time between additions of refused hosts to the list, ns, so that a flood of them
  /// does not block the main queue.
  static constexpr std::uint64_t kListingInterval = 100'000'000;

  /// The server of the process. First call: on the main thread.
  static VLOSCServer& sharedServer();

  /// Held weakly.
  void setDelegate(std::weak_ptr<VLOSCServerDelegate> delegate) { mDelegate = std::move(delegate); }

  // --- the service. Any thread but velor.osc.

  /// For a stopped server.
  GCDAsyncUdpSocketResult startUdPServerAtPort(std::uint16_t port);
  void stop();
  /// Restarts it at this port without changing the saved settings.
  GCDAsyncUdpSocketResult startForThisRunAtPort(std::uint16_t port);
  /// The port of the last start if it failed.
  std::optional<std::uint16_t> refusedPort() const;
  bool running() const;
  /// 0 while stopped.
  std::uint16_t port() const;
  std::optional<std::string> url() const;
  /// New for each start; identifies our own service. Empty before the first start.
  std::string uuid() const;

  // --- who may command

  std::int32_t filterMode() const noexcept { return mFilterMode.load(); }
  void setFilterMode(std::int32_t filterMode);

  std::size_t countOfHostFilter() const { return mHostFilter.size(); }
  /// All functions below raise for a bad index.
  std::shared_ptr<VLOSCHostFilterEntry> objectInHostFilterAtIndex(std::size_t index) const;
  void addHostFilterObject(const std::shared_ptr<VLOSCHostFilterEntry>& entry);
  /// `indexes`: where the entries stand afterwards, one for each.
  void insertHostFilter(const Entries& entries, const std::set<std::size_t>& indexes);
  /// Refuses its host from now on, even if another ticked entry has the same address.
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
  std::optional<NextStart> mNextStart;  // under mServiceMutex; null: as it runs now

  std::mutex mHostsMutex;
  // Under mHostsMutex.
  std::unordered_set<std::string> mHostFilterHash;  // ticked
  std::deque<std::string> mRefused;                 // to be listed
  std::unordered_set<std::string> mKnown;           // listed or to be listed
  bool mListingPosted = false;
  std::uint64_t mNextListing = 0;  // host time, ns

  const host::WeakSelf<VLOSCServer> mSelf;
};

}  // namespace velor
