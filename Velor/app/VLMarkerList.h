// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <vector>

#include "Velor/app/VLMarker.h"

namespace velor {

/// The markers as they are owned, in the order in which they came. Whoever changes it
/// calls VLMarkerController::contentChanged behind the change.
///
/// Main queue. Realtime-safe: no.
class VLMarkerList {
 public:
  using Markers = std::vector<std::shared_ptr<VLMarker>>;

  virtual ~VLMarkerList() = default;

  /// None is null.
  virtual const Markers& markers() const = 0;

  /// The indexes are those that the inserted ones, in their order, have afterwards.
  virtual void insertMarkers(const Markers& markers, const std::set<std::size_t>& indexes) = 0;

  virtual void removeMarkersAtIndexes(const std::set<std::size_t>& indexes) = 0;

 protected:
  VLMarkerList() = default;
  VLMarkerList(const VLMarkerList&) = default;
  VLMarkerList& operator=(const VLMarkerList&) = default;
};

}  // namespace velor
