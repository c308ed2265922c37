// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Kv-Appkit/KVKeyValueObserver.h"
#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/osc/VLOSCClient.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/discovery/NSNetServiceBrowser.h"
#include "platform/discovery/NSNetServiceBrowserDelegate.h"
#include "platform/discovery/NSNetServiceDelegate.h"
#include "platform/host/Error.h"
#include "platform/host/WeakSelf.h"

namespace velor {

/// Reports the state of the clock to every target, one message per datagram, at the
/// addresses of the server's commands:
///
///   /velor/speed            f  deviation from normal speed in percent
///   /velor/transport/play   f  1 while the clock runs, otherwise 0
///   /velor/transport/stop   f  the opposite, sent next
///   /velor/preroll          f  1 or 0
///   /velor/arm              f  1 or 0
///   /velor/time             s  as displayed: "01:02:03:04"
///
/// Targets are services of the type "_osc._udp." found on the network, or entered by the
/// user. The target of a service that goes stays in the list; a service that returns, also
/// from another address, gets its old target. Anyone on the network can announce services,
/// so the list keeps at most kMostFoundClients found targets and drops absent ones first. A
/// new target gets speed, play, stop and the time if known; other values when they change.
///
/// Observable: "clients", announced on the main queue or on the thread that loads. Updates
/// run on the thread of the change that caused them. Queue otherwise: main.
class VLOSCClientDispatcher final : public KVObservable,
                                    public discovery::NSNetServiceBrowserDelegate,
                                    public discovery::NSNetServiceDelegate {
 public:
  using Clients = std::vector<std::shared_ptr<VLOSCClient>>;
  using Service = std::shared_ptr<discovery::NSNetService>;

  static constexpr double kResolveTimeout = 10.0;  // seconds
  static constexpr std::size_t kMostFoundClients = 256;
  /// Resolutions at once; other services wait.
  static constexpr std::size_t kMostResolutions = 16;

  /// The dispatcher of the process. First call: on the main thread.
  static VLOSCClientDispatcher& sharedDispatcher();

  // --- targets

  /// A copy. Any thread.
  Clients clients() const;
  /// Sends it the state. Raises for null.
  void addClient(const std::shared_ptr<VLOSCClient>& client);
  /// Raises for a bad index.
  void removeClientsAtIndexes(const std::set<std::size_t>& indexes);
  /// Marks the target of the service alive, or resolves a service without a target.
  void addClientFromNetService(const Service& service);
  /// Marks the target not alive; it stays in the list.
  void removeClientWithNetService(const Service& service);
  /// The first match in the list, or null.
  std::shared_ptr<VLOSCClient> clientMatchingToServive(const Service& service) const;
  /// Whether it is the current publication of our own server.
  static bool isMyOwnService(const discovery::NSNetService& service);

  // --- updates

  void updateSpeed(float speed);
  void updateStatus(bool running);
  void updateTime(const SMPTETime& time);
  void updatePreroll(bool preroll);
  void updateArm(bool armed);
  void updateClient(VLOSCClient& client) const;

  // --- settings

  /// A keyed archive of the targets that are not for this run only.
  Expected<std::string> settingsData() const;
  /// They replace the present targets. An error has the place of the damage; there are no
  /// targets then. Any thread.
  Expected<> loadSettingsFromData(const std::string& data);

  // --- around a command that asks for this value. Who sent it shows the value already: when
  // the command asks for a change, its result is sent, also if nothing changes.

  void willTakeSpeed(float speed);
  void willTakePreroll(bool preroll);
  void willTakeArm(bool armed);

  // --- from the clock, which also announces what is set to what it was. Speed, pre-roll and
  // arm are sent when they differ from what was sent last: two programs that command each
  // other, or a target that returns what it gets, would go on for ever otherwise.

  void playRatePercentChanged();
  void armedChanged();
  void statusChanged();
  void prerollChanged();
  void timeChanged();

  // --- from the network

  void netServiceBrowserDidFindService(discovery::NSNetServiceBrowser& browser,
                                       const Service& service, bool moreComing) override;
  void netServiceBrowserDidRemoveService(discovery::NSNetServiceBrowser& browser,
                                         const Service& service, bool moreComing) override;
  void netServiceDidResolveAddress(const Service& service) override;
  void netServiceDidNotResolve(const Service& service,
                               const discovery::NSNetServicesError& error) override;
  void netServiceDidStop(const Service& service) override;

 private:
  friend class KVShared<VLOSCClientDispatcher>;
  VLOSCClientDispatcher();
  ~VLOSCClientDispatcher() override;

  struct State {
    // Null until the first change. New targets get speed 0 until then, even if the clock was
    // set before.
    std::optional<float> speed;
    std::optional<bool> preroll;
    std::optional<bool> arm;
    bool status = false;
    std::optional<std::string> timeString;
  };

  State lastState() const;
  template <class Send>
  void sendToAll(Send send) const;

  mutable std::mutex mMutex;
  Clients mClients;  // under mMutex
  State mState;      // under mMutex

  void resolveNext();
  void resolutionEnded(const Service& service);
  std::shared_ptr<VLOSCClient> absentClientNamed(const std::string& name) const;
  bool makeRoomForFoundClient();
  static void dropFoundClients(Clients& clients, std::size_t most);

  std::vector<Service> mUnresolvedClients;  // those under resolution come first
  std::size_t mResolutions = 0;             // number of those under resolution
  bool mToldFull = false;

  const host::WeakSelf<VLOSCClientDispatcher> mSelf;
  KVKeyValueObserver mObserver;
  std::shared_ptr<discovery::NSNetServiceBrowser> mBonjourBrowser;
};

}  // namespace velor
