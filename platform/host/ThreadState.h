// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/host/Semaphore.h"

namespace velor::host {

class Queue;

/// The host's record of the calling thread. The threads of the simulated host share one
/// system thread; it exchanges the record at each switch.
struct ThreadState {
  const Queue* queue = nullptr;          ///< the queue that this thread runs
  std::unique_ptr<Semaphore> semaphore;  ///< Host::threadSemaphore
};

ThreadState& threadState() noexcept;

}  // namespace velor::host
