// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLMarker.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLTableModel.h"

namespace velor {

class VLAppDelegate;
class VLTableView;

/// Keeps the table of markers and the list of the controller in step; names and times are
/// edited in place. A selection by the
/// user, with control held, moves the clock to the marker. Queue: main.
class VLMarkersPane {
 public:
  /// The table outlives it.
  VLMarkersPane(VLTableView& table, VLPerform perform);
  ~VLMarkersPane();
  VLMarkersPane(const VLMarkersPane&) = delete;
  VLMarkersPane& operator=(const VLMarkersPane&) = delete;

  void setController(const std::shared_ptr<VLAppDelegate>& controller);

 private:
  using Model = VLTableModel<VLMarker>;

  static Model::Columns columns(const QFont& timeFont);
  void showMarkers();
  void showSelection();
  void selectionDidChange();

  VLTableView& markerTable;
  const VLPerform mPerform;
  Model* const mModel;  // a child of the table
  std::weak_ptr<VLAppDelegate> mController;
  bool mIsFollowing = false;  // the list, so that what the table reports is known there
  std::vector<KVObserverToken> mTokens;
};

}  // namespace velor
