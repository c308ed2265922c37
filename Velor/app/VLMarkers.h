// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <set>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLMarkerController.h"
#include "Velor/app/VLMarkerList.h"
#include "kvtimecode/KVSMPTETime.h"
#include "platform/host/WeakSelf.h"
#include "platform/qt/UndoManager.h"

namespace velor {

/// The markers of the document, all of one format: edits, which can be undone, and
/// look-ups by time, which pass over markers whose time is not known.
///
/// Observable: "markers". Queue: main.
class VLMarkers final : public KVObservable, public VLMarkerList {
 public:
  /// `format` is a format code.
  VLMarkers(qt::UndoManager& undoManager, std::uint32_t format)
      : mUndoManager(undoManager), mType(format), mSelf(this) {}

  VLMarkerController& controller() noexcept { return mController; }
  const VLMarkerController& controller() const noexcept { return mController; }

  const Markers& markers() const noexcept override { return mMarkers; }
  void insertMarkers(const Markers& markers, const std::set<std::size_t>& indexes) override;
  void removeMarkersAtIndexes(const std::set<std::size_t>& indexes) override;
  /// Replaces the list; the user cannot undo it.
  void setMarkers(Markers markers);

  /// At this time, if none is there.
  void addMarker(const std::shared_ptr<KVSMPTETime>& time);
  /// They keep their real times.
  void setType(std::uint32_t format);

  // Null when there is none.

  /// The last one before the time: one that stands on it is left.
  std::shared_ptr<VLMarker> lastMarkerWithTimeLeq(const KVSMPTETime& time) const;
  /// The first one behind the time.
  std::shared_ptr<VLMarker> firstMarkerWithTimeGeq(const KVSMPTETime& time) const;
  std::shared_ptr<VLMarker> markerWithTime(const KVSMPTETime& time) const;

 private:
  Markers findableMarkers(const KVSMPTETime& time) const;
  void takeOver(VLMarker& marker) const;

  qt::UndoManager& mUndoManager;
  std::uint32_t mType;
  Markers mMarkers;
  VLMarkerController mController{*this};
  std::size_t mNumber = 0;  // of the last one that was named; 0: none yet
  const host::WeakSelf<VLMarkers> mSelf;
};

}  // namespace velor
