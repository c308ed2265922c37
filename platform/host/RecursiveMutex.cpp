// SPDX-License-Identifier: MIT
#include "platform/host/RecursiveMutex.h"

#include <cstdio>
#include <cstdlib>

#include "platform/host/Host.h"

namespace velor::host {

RecursiveMutex::RecursiveMutex() : mHost(current()), mFree(mHost.makeSemaphore()) {
  mFree->signal();
}

void RecursiveMutex::lock() {
  const Semaphore* const self = &mHost.threadSemaphore();
  if (mHolder.load(std::memory_order_relaxed) != self) {
    mFree->wait();
    mHolder.store(self, std::memory_order_relaxed);
  }
  ++mDepth;
}

void RecursiveMutex::unlock() {
  if (mHolder.load(std::memory_order_relaxed) != &mHost.threadSemaphore()) {
    std::fputs("a recursive mutex unlocked by a thread that does not hold it\n", stderr);
    std::abort();
  }
  if (--mDepth == 0) {
    mHolder.store(nullptr, std::memory_order_relaxed);
    mFree->signal();
  }
}

}  // namespace velor::host
