// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>

namespace velor::host {

/// A mutex for short sections that threads of different urgency share: while an
/// urgent thread waits, the holder runs with its priority. For use with
/// std::lock_guard. Not held while waiting; in a real-time callback only where all
/// others hold it for a short, bounded work, such as a copy.
class PriorityMutex {
 public:
  PriorityMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    pthread_mutex_init(&mMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~PriorityMutex() { pthread_mutex_destroy(&mMutex); }
  PriorityMutex(const PriorityMutex&) = delete;
  PriorityMutex& operator=(const PriorityMutex&) = delete;

  void lock() { pthread_mutex_lock(&mMutex); }
  void unlock() { pthread_mutex_unlock(&mMutex); }

 private:
  pthread_mutex_t mMutex{};
};

}  // namespace velor::host
