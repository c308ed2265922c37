// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/views/VLDestinationsModel.h"
#include "Velor/views/VLPerform.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLTableView;

/// Shows the destinations of the device manager. Queue: main, to which it brings the
/// changes: the manager reports them on any thread, with its lock held.
class VLDestinationsPane {
 public:
  /// The table outlives it.
  VLDestinationsPane(VLTableView& table, VLPerform perform);
  VLDestinationsPane(const VLDestinationsPane&) = delete;
  VLDestinationsPane& operator=(const VLDestinationsPane&) = delete;

  /// From then on it follows the manager and the clock.
  void follow();
  void showDestinations();

 private:
  VLDestinationsModel* const mModel;  // a child of the table
  const host::WeakSelf<VLDestinationsPane> mSelf{this};
  std::vector<KVObserverToken> mTokens;
};

}  // namespace velor
