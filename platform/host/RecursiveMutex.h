// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>

#include "platform/host/Semaphore.h"

namespace velor::host {

class Host;

/// A mutex that the thread which holds it may lock again, and hold while it waits
/// for a queue or for time: who finds it taken waits through the host. Threads are
/// those of the host, so that it keeps the threads of a simulated one apart too.
///
/// For use with std::lock_guard. Any thread. Realtime-safe: no. It must not be
/// waited for on a queue for which a holder waits.
class RecursiveMutex {
 public:
  /// Belongs to the host in force, and ends before it.
  RecursiveMutex();
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  void lock();
  /// As often as it was locked. Ends the program on a thread that does not hold it.
  void unlock();

 private:
  Host& mHost;
  const std::unique_ptr<Semaphore> mFree;  // 1 while nobody holds it
  // A thread is known by its own semaphore. Only the holder can find its own here,
  // and a former one never does: it was taken away before the release.
  std::atomic<const Semaphore*> mHolder{nullptr};
  unsigned mDepth = 0;  // the holder's
};

}  // namespace velor::host
