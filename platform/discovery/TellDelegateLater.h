// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>

#include "platform/host/Host.h"

namespace velor::discovery {

/// Calls `tell` with the sender's delegate and the sender on the main queue, if both still
/// exist by then. Any thread.
template <class Sender, class Tell>
void tellDelegateLater(std::weak_ptr<Sender> sender, Tell tell) {
  host::current().mainQueue().async([weak = std::move(sender), tell = std::move(tell)] {
    const auto self = weak.lock();
    const auto delegate = self != nullptr ? self->delegate() : nullptr;
    if (delegate != nullptr) {
      tell(*delegate, self);
    }
  });
}

}  // namespace velor::discovery
