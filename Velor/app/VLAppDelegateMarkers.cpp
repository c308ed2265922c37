// SPDX-License-Identifier: MIT
// The list of markers: edits with their undo, look-ups and jumps.
#include <algorithm>

#include "Kv-Appkit/KVBinarySearch.h"
#include "Velor/app/VLAppDelegate.h"

namespace velor {
namespace {

// What a control's tag or segment stands for.
enum WhichMarker {
  kPrevSegment = 0,
  kAddSegment = 1,
  kNextSegment = 2,
  kPrevTag = 99,
  kNextTag = 101
};

std::string stepName(const char* verb, const std::vector<std::shared_ptr<VLMarker>>& markers) {
  return std::string(verb) + " " +
         (markers.size() == 1 ? markers.front()->name()
                              : std::to_string(markers.size()) + " markers");
}

}  // namespace

void VLAppDelegate::insertMarkers(const std::vector<std::shared_ptr<VLMarker>>& markers,
                                  const std::set<std::size_t>& indexes) {
  willChangeValueForKey("markers");
  auto marker = markers.begin();
  std::vector<std::shared_ptr<VLMarker>> all;
  all.reserve(mMarkers.size() + markers.size());
  auto old = mMarkers.begin();
  while (old != mMarkers.end() || marker != markers.end()) {
    const bool isNew =
        marker != markers.end() && (old == mMarkers.end() || indexes.contains(all.size()));
    all.push_back(isNew ? *marker++ : *old++);
  }
  mMarkers = std::move(all);
  mMarkerController.contentChanged();
  didChangeValueForKey("markers");
  mUndoManager.registerUndo([weak = weak_from_this(), indexes] {
    if (const auto self = weak.lock()) {
      self->removeMarkersAtIndexes(indexes);
    }
  });
  if (!markers.empty()) {
    mUndoManager.setActionName(stepName("insert", markers));
  }
}

void VLAppDelegate::removeMarkersAtIndexes(const std::set<std::size_t>& indexes) {
  std::vector<std::shared_ptr<VLMarker>> kept;
  std::vector<std::shared_ptr<VLMarker>> removed;
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
  mUndoManager.registerUndo([weak = weak_from_this(), removed, places] {
    if (const auto self = weak.lock()) {
      self->insertMarkers(removed, places);
    }
  });
  mUndoManager.setActionName(stepName("remove", removed));
  willChangeValueForKey("markers");
  mMarkers = std::move(kept);
  mMarkerController.contentChanged();
  didChangeValueForKey("markers");
}

void VLAppDelegate::addMarker() {
  if (mMarkerNumber == 0) {
    mMarkerNumber = mMarkerController.arrangedObjects().size();
  }
  const auto time = currentTime();
  if (markerWithTime(*time) != nullptr) {
    return;
  }
  ++mMarkerNumber;
  mMarkerController.addObject(
      VLMarker::initWithTime(time, "Marker " + std::to_string(mMarkerNumber)));
}

void VLAppDelegate::deleteMarkers() {
  mMarkerController.remove();
}

void VLAppDelegate::moveToMarker(int which) {
  switch (which) {
    case kPrevSegment:
    case kPrevTag:
      gotoPrevMarker();
      break;
    case kAddSegment:
      addMarker();
      break;
    case kNextSegment:
    case kNextTag:
      gotoNextMarker();
      break;
    default:
      break;
  }
}

// Those that can be compared with the time, in its order.
std::vector<std::shared_ptr<VLMarker>> VLAppDelegate::findableMarkers(
    const KVSMPTETime& time) const {
  std::vector<std::shared_ptr<VLMarker>> markers;
  for (const auto& marker : mMarkerController.arrangedObjects()) {
    if (marker->time()->valid() && marker->time()->type() == time.type()) {
      markers.push_back(marker);
    }
  }
  return markers;
}

std::shared_ptr<VLMarker> VLAppDelegate::lastMarkerWithTimeLeq(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  return findLastItemMatchingBlock(
      markers, [&time](const auto& marker) { return marker->time()->compare(time) == -1; });
}

std::shared_ptr<VLMarker> VLAppDelegate::firstMarkerWithTimeGeq(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  return findFirstItemMatchingBlock(
      markers, [&time](const auto& marker) { return marker->time()->compare(time) == 1; });
}

std::shared_ptr<VLMarker> VLAppDelegate::markerWithTime(const KVSMPTETime& time) const {
  const auto markers = findableMarkers(time);
  return findWithBinaryComparator(
      markers, [&time](const auto& marker) { return time.compare(*marker->time()); });
}

void VLAppDelegate::gotoMarker(const std::shared_ptr<VLMarker>& marker) {
  if (marker != nullptr) {
    setCurrentTime(marker->time());
    mMarkerController.setSelectedObjects({marker});
  }
}

void VLAppDelegate::gotoNextMarker() {
  gotoMarker(firstMarkerWithTimeGeq(*currentTime()));
}

void VLAppDelegate::gotoPrevMarker() {
  gotoMarker(lastMarkerWithTimeLeq(*currentTime()));
}

}  // namespace velor
