// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/host/Host.h"
#include "platform/host/Queue.h"

namespace velor {

/// Ends a queue whose owner may end on that queue itself: hands it to the main queue then,
/// which can wait for it.
struct VLQueueEnd {
  void operator()(host::Queue* queue) const {
    std::unique_ptr<host::Queue> owned(queue);
    if (owned->isCurrent()) {
      host::current().mainQueue().async([end = std::move(owned)] {});
    }
  }

  using Owned = std::unique_ptr<host::Queue, VLQueueEnd>;
};

}  // namespace velor
