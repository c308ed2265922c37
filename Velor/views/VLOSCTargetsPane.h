// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>
#include <unordered_map>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/osc/VLOSCClient.h"
#include "Velor/views/VLTableModel.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLAppDelegate;
class VLSheets;
class VLTableView;

/// Shows the targets of feedback. Host and port of those that the user has entered are edited
/// in place; those found on the network are fixed. Queue: main.
class VLOSCTargetsPane {
 public:
  static constexpr const char* kDefaultHost = "192.168.1.1";

  /// What is passed outlives it. It follows the dispatcher at once.
  VLOSCTargetsPane(VLTableView& table, VLSheets& sheets);
  VLOSCTargetsPane(const VLOSCTargetsPane&) = delete;
  VLOSCTargetsPane& operator=(const VLOSCTargetsPane&) = delete;

  /// A target of the user's at kDefaultHost. Where this host has an address 192.168.x.y, the
  /// target moves to 192.168.x.255, unless the user has already given it another host.
  void addClientEntry(VLAppDelegate& controller);
  /// The selected ones.
  void remove();

 private:
  using Model = VLTableModel<VLOSCClient>;

  Model::Columns columns();
  bool setPort(VLOSCClient& client, const QString& typed);
  bool setHost(VLOSCClient& client, const QString& typed);
  KVObservable::Observer later() const;
  void showTargets();
  void select(const VLOSCClient& client);

  VLTableView& clientsTableView;
  VLSheets& mSheets;
  Model* const mModel;  // a child of the table
  // Whether showTargets waits on the main queue: one call serves any number of changes.
  const std::shared_ptr<std::atomic<bool>> mIsWaiting = std::make_shared<std::atomic<bool>>(false);
  const host::WeakSelf<VLOSCTargetsPane> mSelf{this};
  KVObserverToken mToken;
  std::unordered_map<const VLOSCClient*, std::vector<KVObserverToken>> mTokensOfClients;
};

}  // namespace velor
