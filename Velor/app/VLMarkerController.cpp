// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarkerController.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr std::string_view kArrangedKey = "arrangedObjects";
constexpr std::string_view kSelectionKey = "selectionIndexes";

// A marker and the values that it is sorted by, read once.
struct Place {
  explicit Place(const std::shared_ptr<VLMarker>& object)
      : seconds(object->isValid() ? ltc_seconds_from_smpte_time(object->time()->timeStamp())
                                  : std::numeric_limits<double>::infinity()),
        marker(&object) {}

  bool operator<(const Place& other) const {
    return std::tie(seconds, (*marker)->name()) < std::tie(other.seconds, (*other.marker)->name());
  }

  double seconds;
  const std::shared_ptr<VLMarker>* marker;
};

VLMarkerList::Markers sorted(const VLMarkerList::Markers& markers) {
  std::vector<Place> places(markers.begin(), markers.end());
  std::stable_sort(places.begin(), places.end());
  VLMarkerList::Markers result;
  result.reserve(places.size());
  for (const Place& place : places) {
    result.push_back(*place.marker);
  }
  return result;
}

// The places of markers of the set.
std::set<std::size_t> placesOf(const std::unordered_set<const VLMarker*>& wanted,
                               const VLMarkerList::Markers& markers) {
  std::set<std::size_t> places;
  for (std::size_t i = 0; i < markers.size(); ++i) {
    if (wanted.contains(markers[i].get())) {
      places.insert(places.end(), i);
    }
  }
  return places;
}

std::unordered_set<const VLMarker*> setOf(const VLMarkerList::Markers& markers) {
  std::unordered_set<const VLMarker*> set;
  for (const auto& marker : markers) {
    set.insert(marker.get());
  }
  return set;
}

}  // namespace

void VLMarkerController::rearrangeObjects() {
  Markers arranged = sorted(mList.markers());
  std::set<std::size_t> selection = placesOf(setOf(selectedObjects()), arranged);
  // Told behind that of the objects.
  std::optional<KVAnnouncement> selectionChange;
  if (selection != mSelectionIndexes) {
    selectionChange.emplace(*this, kSelectionKey);
  }
  const KVAnnouncement change(*this, kArrangedKey);
  mArrangedObjects = std::move(arranged);
  mSelectionIndexes = std::move(selection);
}

void VLMarkerController::contentChanged() {
  observeMarkers();
  rearrangeObjects();
}

void VLMarkerController::observeMarkers() {
  decltype(mObservers) observers;
  observers.reserve(mList.markers().size());
  for (const auto& marker : mList.markers()) {
    if (auto known = mObservers.extract(marker)) {
      observers.insert(std::move(known));
    } else {
      const auto edited = [this](std::string_view) { rearrangeObjects(); };
      // The text of the time depends on the time, and so announces it.
      observers.try_emplace(
          marker, Tokens{marker->addObserver("time", edited), marker->addObserver("name", edited)});
    }
  }
  mObservers = std::move(observers);
}

void VLMarkerController::setSelectionIndexes(std::set<std::size_t> indexes) {
  indexes.erase(indexes.lower_bound(mArrangedObjects.size()), indexes.end());
  if (indexes != mSelectionIndexes) {
    const KVAnnouncement change(*this, kSelectionKey);
    mSelectionIndexes = std::move(indexes);
  }
}

VLMarkerController::Markers VLMarkerController::selectedObjects() const {
  Markers objects;
  objects.reserve(mSelectionIndexes.size());
  for (const std::size_t index : mSelectionIndexes) {
    objects.push_back(mArrangedObjects[index]);
  }
  return objects;
}

void VLMarkerController::setSelectedObjects(const Markers& objects) {
  setSelectionIndexes(placesOf(setOf(objects), mArrangedObjects));
}

void VLMarkerController::addObject(const std::shared_ptr<VLMarker>& object) {
  KV_REQUIRE_PARAMETER(object != nullptr, "object");
  mList.insertMarkers({object}, {mList.markers().size()});
  setSelectedObjects({object});
}

void VLMarkerController::remove() {
  const auto places = placesOf(setOf(selectedObjects()), mList.markers());
  if (!places.empty()) {
    mList.removeMarkersAtIndexes(places);
  }
}

}  // namespace velor
