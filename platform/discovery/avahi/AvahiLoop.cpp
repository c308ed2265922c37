// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/AvahiLoop.h"

#include <cstdio>
#include <cstdlib>

#include "platform/host/ThreadState.h"

namespace velor::discovery {

AvahiLoop::AvahiLoop(const std::string& label)
    : Queue(host::current(), label, host::current().makeSemaphore(host::Host::Pollable::yes),
            WithoutThread{}),
      mPoll(avahi_simple_poll_new()),
      mThread(mPoll != nullptr ? host().startThread(label, [this] { run(); }) : nullptr) {
  if (mThread == nullptr) {
    std::fprintf(stderr, "cannot start the thread of queue %s\n", label.c_str());
    std::abort();
  }
}

AvahiLoop::~AvahiLoop() {
  endThread();
}

void AvahiLoop::endThread() {
  if (mThread != nullptr) {
    host().timers().forget(*this);
    async([this] { mEnding = true; });
    mThread->join();
    mThread = nullptr;
    host().timers().forget(*this);  // timers that the last jobs set
  }
}

void AvahiLoop::run() {
  host::threadState().queue = this;
  const AvahiPoll* const api = poll();
  AvahiWatch* const watch =
      api->watch_new(api, wake().descriptor(), AVAHI_WATCH_IN, &AvahiLoop::onWake, this);
  while (!mEnding) {
    if (avahi_simple_poll_iterate(mPoll.get(), -1) != 0) {
      std::fprintf(stderr, "cannot wait for events of queue %s\n", label().c_str());
      std::abort();
    }
  }
  api->watch_free(watch);
}

void AvahiLoop::onWake(AvahiWatch*, int, AvahiWatchEvent, void* self) {
  auto& loop = *static_cast<AvahiLoop*>(self);
  while (loop.wake().waitUntil(0)) {
  }
  // First, so that a job that comes while others run signals again.
  loop.acknowledgeWake();
  loop.drain();
}

}  // namespace velor::discovery
