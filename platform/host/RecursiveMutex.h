// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>

#include "platform/host/Semaphore.h"

namespace velor::host {

class Host;

/// A mutex that the thread which holds it may lock again, and hold while it waits
/// for a queue or for time: a thread that finds it locked waits through the host. It
/// knows the host's threads, so it works for those of a simulated host too.
///
/// For use with std::lock_guard. Any thread. Realtime-safe: no. A queue must not wait
/// for it while its holder waits for that queue.
class RecursiveMutex {
 public:
  /// Belongs to the current host, and ends before it.
  RecursiveMutex();
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  void lock();
  /// As often as it was locked. Ends the program on a thread that does not hold it.
  void unlock();

 private:
  Host& mHost;
  const std::unique_ptr<Semaphore> mFree;  // 1 while nobody holds it
  // A thread's own semaphore identifies it. Only the holder can find its own here; a
  // former holder has removed its own before the release.
  std::atomic<const Semaphore*> mHolder{nullptr};
  unsigned mDepth = 0;  // the holder's
};

}  // namespace velor::host
