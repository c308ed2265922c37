// SPDX-License-Identifier: MIT
#pragma once

#include <avahi-common/simple-watch.h>

#include <memory>
#include <string>

#include "platform/host/Host.h"

namespace velor::discovery {

/// A queue whose thread also waits for Avahi's descriptors and timeouts, so that the
/// library's callbacks and the queue's jobs run one at a time on one thread.
class AvahiLoop final : public host::Queue {
 public:
  explicit AvahiLoop(const std::string& label);
  /// The library has no watch here any more.
  ~AvahiLoop() override;

  /// For the library; on the queue.
  const AvahiPoll* poll() const noexcept { return avahi_simple_poll_get(mPoll.get()); }

  /// Runs the posted jobs and ends the thread. Not from the queue.
  void endThread();

 private:
  struct FreePoll {
    void operator()(AvahiSimplePoll* poll) const { avahi_simple_poll_free(poll); }
  };

  void run();
  static void onWake(AvahiWatch* watch, int descriptor, AvahiWatchEvent event, void* self);

  const std::unique_ptr<AvahiSimplePoll, FreePoll> mPoll;
  bool mEnding = false;  // the thread's
  std::unique_ptr<host::Thread> mThread;
};

}  // namespace velor::discovery
