// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVObserverList.h"
#include "Velor/app/VLMarkerList.h"

namespace velor {

/// A list of markers as a table shows it: sorted, with a selection, and sorted again
/// whenever a marker is edited.
///
/// The order is by time, then name, then the place in the list. Times of different
/// formats stand in the order of their seconds; those that are not known come last,
/// by name.
///
/// Observable: arrangedObjects, at each rearranging; selectionIndexes, when they change.
/// Both have their new values when the first of them is reported.
///
/// Main queue. Realtime-safe: no.
class VLMarkerController final : public KVObservable {
 public:
  using Markers = VLMarkerList::Markers;

  /// The list outlives it, and need not be made yet: nothing of it is arranged before
  /// `contentChanged`.
  explicit VLMarkerController(VLMarkerList& list) : mList(list) {}

  // --- the sorted view

  const Markers& arrangedObjects() const noexcept { return mArrangedObjects; }

  /// Sorts again: after changes inside the times, which markers do not announce.
  void rearrangeObjects();

  /// To be called after each change of the list. What is selected stays so, unless it
  /// has gone.
  void contentChanged();

  // --- the selection

  /// Places in arrangedObjects.
  const std::set<std::size_t>& selectionIndexes() const noexcept { return mSelectionIndexes; }
  /// Those behind the end are dropped.
  void setSelectionIndexes(std::set<std::size_t> indexes);

  /// In the order of arrangedObjects.
  Markers selectedObjects() const;
  /// Those that are not in the list are dropped.
  void setSelectedObjects(const Markers& objects);

  // --- edits of the list

  /// At the end of the list; it becomes the selection.
  void addObject(const std::shared_ptr<VLMarker>& object);

  /// Takes the selection out of the list.
  void remove();

 private:
  using Tokens = std::array<KVObserverToken, 2>;

  void observeMarkers();

  VLMarkerList& mList;
  Markers mArrangedObjects;
  std::set<std::size_t> mSelectionIndexes;
  std::unordered_map<std::shared_ptr<VLMarker>, Tokens> mObservers;
};

}  // namespace velor
