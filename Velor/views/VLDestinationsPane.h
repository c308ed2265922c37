// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLTableModel.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLTableView;

/// Shows the destinations of the device manager, each with its switch for MTC and what becomes
/// of it. Queue: main, to which it brings the
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
  using Model = VLTableModel<VLTimecodeDestinationDevice>;

  Model::Columns columns() const;
  bool isSending(const VLTimecodeDestinationDevice& destination) const;
  QString stateOf(const VLTimecodeDestinationDevice& destination) const;

  bool mIsMoving = false;  // the clock, by itself or as it follows
  Model* const mModel;     // a child of the table
  const host::WeakSelf<VLDestinationsPane> mSelf{this};
  std::vector<KVObserverToken> mTokens;
};

}  // namespace velor
