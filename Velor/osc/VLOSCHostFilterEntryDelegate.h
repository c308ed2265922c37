// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLOSCHostFilterEntry;

/// Gets each tick and untick of a row of the host filter.
class VLOSCHostFilterEntryDelegate {
 public:
  virtual ~VLOSCHostFilterEntryDelegate() = default;

  /// Also without a change. On the thread that set it.
  virtual void hostFilterEntryChangedEnabled(VLOSCHostFilterEntry& entry, bool enabled) = 0;
};

}  // namespace velor
