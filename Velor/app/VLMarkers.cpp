// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarkers.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace velor {
namespace {

std::string stepName(const char* verb, const VLMarkers::Markers& markers) {
  return std::string(verb) + " " +
         (markers.size() == 1 ? markers.front()->name()
                              : std::to_string(markers.size()) + " markers");
}

}  // namespace

void VLMarkers::insertMarkers(const Markers& markers, const std::set<std::size_t>& indexes) {
  // Those that an undo brings back may be of the format before.
  for (const auto& each : markers) {
    takeOver(*each);
  }
  willChangeValueForKey("markers");
  auto marker = markers.begin();
  Markers all;
  all.reserve(mMarkers.size() + markers.size());
  auto old = mMarkers.begin();
  while (old != mMarkers.end() || marker != markers.end()) {
    const bool isNew =
        marker != markers.end() && (old == mMarkers.end() || indexes.contains(all.size()));
    all.push_back(isNew ? *marker++ : *old++);
  }
  mMarkers = std::move(all);
  mController.contentChanged();
  didChangeValueForKey("markers");
  mUndoManager.registerUndo(
      mSelf.job([indexes](VLMarkers& self) { self.removeMarkersAtIndexes(indexes); }));
  if (!markers.empty()) {
    mUndoManager.setActionName(stepName("insert", markers));
  }
}

void VLMarkers::removeMarkersAtIndexes(const std::set<std::size_t>& indexes) {
  Markers kept;
  Markers removed;
  std::set<std::size_t> places;
  for (std::size_t i = 0; i < mMarkers.size(); ++i) {
    if (indexes.contains(i)) {
      removed.push_back(mMarkers[i]);
      places.insert(i);
    } else {
      kept.push_back(mMarkers[i]);
    }
  }
  if (removed.empty()) {
    return;
  }
  mUndoManager.registerUndo(
      mSelf.job([removed, places](VLMarkers& self) { self.insertMarkers(removed, places); }));
  mUndoManager.setActionName(stepName("remove", removed));
  willChangeValueForKey("markers");
  mMarkers = std::move(kept);
  mController.contentChanged();
  didChangeValueForKey("markers");
}

void VLMarkers::addMarker(const std::shared_ptr<KVSMPTETime>& time) {
  if (mNumber == 0) {
    mNumber = mController.arrangedObjects().size();
  }
  if (markerWithTime(*time) != nullptr) {
    return;
  }
  ++mNumber;
  mController.addObject(VLMarker::initWithTime(time, "Marker " + std::to_string(mNumber)));
}

void VLMarkers::takeOver(VLMarker& marker) const {
  if (marker.isValid() && marker.time()->type() != mType) {
    marker.time()->setType(mType);
  }
}

void VLMarkers::setMarkers(Markers markers) {
  for (const auto& marker : markers) {
    takeOver(*marker);
  }
  willChangeValueForKey("markers");
  mMarkers = std::move(markers);
  mController.contentChanged();
  didChangeValueForKey("markers");
}

void VLMarkers::setType(std::uint32_t format) {
  // The clock announces its format each time that it is set.
  const bool isOther = std::exchange(mType, format) != format;
  if (!isOther) {
    return;
  }
  for (const auto& marker : mController.arrangedObjects()) {
    takeOver(*marker);
  }
  mController.rearrangeObjects();
}

// Those that can be compared with the time, in its order.
VLMarkers::Markers VLMarkers::findableMarkers(const KVSMPTETime& time) const {
  Markers markers;
  for (const auto& marker : mController.arrangedObjects()) {
    if (marker->time()->valid() && marker->time()->type() == time.type()) {
      markers.push_back(marker);
    }
  }
  return markers;
}

std::shared_ptr<VLMarker> VLMarkers::lastMarkerWithTimeLeq(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  const auto end = std::ranges::partition_point(
      markers, [&time](const auto& marker) { return marker->time()->compare(time) == -1; });
  return end != markers.begin() ? *std::prev(end) : nullptr;
}

std::shared_ptr<VLMarker> VLMarkers::firstMarkerWithTimeGeq(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  const auto first = std::ranges::partition_point(
      markers, [&time](const auto& marker) { return marker->time()->compare(time) != 1; });
  return first != markers.end() ? *first : nullptr;
}

std::shared_ptr<VLMarker> VLMarkers::markerWithTime(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  const auto first = std::ranges::partition_point(
      markers, [&time](const auto& marker) { return marker->time()->compare(time) == -1; });
  return first != markers.end() && (*first)->time()->compare(time) == 0 ? *first : nullptr;
}

}  // namespace velor
