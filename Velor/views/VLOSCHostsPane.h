// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/osc/VLOSCHostFilterEntry.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLTableModel.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLTableView;

/// Shows the hosts that have asked to command, each with its tick. Queue: main.
class VLOSCHostsPane {
 public:
  /// The table outlives it. It follows the server at once.
  VLOSCHostsPane(VLTableView& table, const VLPerform& perform);
  VLOSCHostsPane(const VLOSCHostsPane&) = delete;
  VLOSCHostsPane& operator=(const VLOSCHostsPane&) = delete;

  /// Refuses the selected hosts, as if they had not asked.
  void remove();

 private:
  using Model = VLTableModel<VLOSCHostFilterEntry>;

  static Model::Columns columns();
  static Model::Rows hosts();
  void showHosts() { mModel->show(hosts()); }

  VLTableView& allowedHostsTableView;
  Model* const mModel;  // a child of the table
  const host::WeakSelf<VLOSCHostsPane> mSelf{this};
  KVObserverToken mToken;
};

}  // namespace velor
