// SPDX-License-Identifier: MIT
#pragma once

#include <utility>

#include "platform/host/Host.h"

namespace velor {

/// Runs the job now on the main thread, and from any other thread by the main queue.
template <class Job>
void VLOnMain(Job job) {
  host::MainQueue& queue = host::current().mainQueue();
  if (queue.isCurrent()) {
    job();
  } else {
    queue.async(std::move(job));
  }
}

}  // namespace velor
