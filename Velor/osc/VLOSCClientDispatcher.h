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

/// Tells every target what the clock does, one message a datagram, under the
/// addresses that the server takes commands at:
///
///   /velor/speed            f  percent off normal
///   /velor/transport/play   f  1 while it runs, else 0
///   /velor/transport/stop   f  the opposite, right behind
///   /velor/preroll          f  1 or 0
///   /velor/arm              f  1 or 0
///   /velor/time             s  as it is displayed: "01:02:03:04"
///
/// Targets are found on the network, where services of the type "_osc._udp." are,
/// or added by the user. A service that goes leaves its target in the list, and takes it
/// again when it returns, from another address too. Anyone on the network can announce
/// services: kMostFoundClients of their targets stay in the list, and those that are not
/// present go first. A fresh target gets speed, play, stop and the time, if there is one;
/// the others when they change.
///
/// Observable: "clients", told on the main queue or by whoever loads. Updates run on
/// the thread of the change that caused them; the rest on the main queue.
class VLOSCClientDispatcher final : public KVObservable,
                                    public discovery::NSNetServiceBrowserDelegate,
                                    public discovery::NSNetServiceDelegate {
 public:
  using Clients = std::vector<std::shared_ptr<VLOSCClient>>;
  using Service = std::shared_ptr<discovery::NSNetService>;

  static constexpr double kResolveTimeout = 10.0;  // seconds
  static constexpr std::size_t kMostFoundClients = 256;
  /// At once; the other services wait for their turn.
  static constexpr std::size_t kMostResolutions = 16;

  /// The dispatcher of the process. The first call is the main thread's.
  static VLOSCClientDispatcher& sharedDispatcher();

  // --- targets

  /// A copy. Any thread.
  Clients clients() const;
  /// Tells it the state. Raises for null.
  void addClient(const std::shared_ptr<VLOSCClient>& client);
  /// Raises for an index that is none.
  void removeClientsAtIndexes(const std::set<std::size_t>& indexes);
  /// Has the target of the service be alive; one that has none yet is resolved first.
  void addClientFromNetService(const Service& service);
  /// It stays in the list.
  void removeClientWithNetService(const Service& service);
  /// The first in the list; null where there is none.
  std::shared_ptr<VLOSCClient> clientMatchingToServive(const Service& service) const;
  /// Whether it is the publication of our own server, as it runs now.
  static bool isMyOwnService(const discovery::NSNetService& service);

  // --- updates

  void updateSpeed(float speed);
  void updateStatus(bool running);
  void updateTime(const SMPTETime& time);
  void updatePreroll(bool preroll);
  void updateArm(bool armed);
  void updateClient(VLOSCClient& client) const;

  // --- settings

  /// A keyed archive of the targets that outlive the run.
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
    // Null until the first change, as the clock may have been set before; a fresh target is
    // told of no speed but 0 until then.
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

  std::vector<Service> mUnresolvedClients;  // the first are under resolution
  std::size_t mResolutions = 0;             // so many
  bool mToldFull = false;

  const host::WeakSelf<VLOSCClientDispatcher> mSelf;
  KVKeyValueObserver mObserver;
  std::shared_ptr<discovery::NSNetServiceBrowser> mBonjourBrowser;
};

}  // namespace velor
