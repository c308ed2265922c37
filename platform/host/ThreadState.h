// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/host/Semaphore.h"

namespace velor::host {

class Queue;

/// What the host knows of the calling thread. The simulated host, whose threads
/// share one of the system's, exchanges it at each switch.
struct ThreadState {
  const Queue* queue = nullptr;          ///< the queue that this thread runs
  std::unique_ptr<Semaphore> semaphore;  ///< Host::threadSemaphore
};

ThreadState& threadState() noexcept;

}  // namespace velor::host
