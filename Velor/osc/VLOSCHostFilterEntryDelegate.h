// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLOSCHostFilterEntry;

/// Hears of a row of the host filter being ticked or unticked.
class VLOSCHostFilterEntryDelegate {
 public:
  virtual ~VLOSCHostFilterEntryDelegate() = default;

  /// Also when it was so before. On the thread that set it.
  virtual void hostFilterEntryChangedEnabled(VLOSCHostFilterEntry& entry, bool enabled) = 0;
};

}  // namespace velor
