// SPDX-License-Identifier: MIT
#pragma once

#include "platform/discovery/DiscoveryTypes.h"

namespace velor::discovery {

/// A publication, a search or a resolution that is under way; it ends with this,
/// on any thread. On the main thread, its reply is not called any more then.
class DiscoveryActivity {
 public:
  DiscoveryActivity() = default;
  virtual ~DiscoveryActivity() = default;
  DiscoveryActivity(const DiscoveryActivity&) = delete;
  DiscoveryActivity& operator=(const DiscoveryActivity&) = delete;

  /// Gives a publication another TXT record while it stands; nothing to others.
  virtual void setTXTRecordData(DiscoveryTXTData txt) = 0;
};

}  // namespace velor::discovery
