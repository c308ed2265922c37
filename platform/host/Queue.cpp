// SPDX-License-Identifier: MIT
#include "platform/host/Queue.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/host/ThreadState.h"

namespace velor::host {

Queue::Queue(std::string label) : Queue(std::move(label), ThreadRole::ordinary) {}

Queue::Queue(std::string label, ThreadRole role)
    : mHost(current()), mLabel(std::move(label)), mWake(mHost.makeSemaphore()) {
  mThread = mHost.startThread(mLabel, [this, role] {
    if (role != ThreadRole::ordinary) {
      mHost.thread_policy_set({}, role);
    }
    runLoop();
  });
  if (mThread == nullptr) {
    std::fprintf(stderr, "cannot start the thread of queue %s\n", mLabel.c_str());
    std::abort();
  }
}

Queue::Queue(Host& host, std::string label, std::unique_ptr<Semaphore> wake, WithoutThread)
    : mHost(host), mLabel(std::move(label)), mWake(std::move(wake)) {}

Queue::~Queue() {
  if (mThread != nullptr) {
    mHost.timers().forget(*this);
    mEnding.store(true);
    mWake->signal();
    mThread->join();
    mHost.timers().forget(*this);  // those of the last jobs
  }
}

void Queue::async(Task task) {
  mTasks.push(std::move(task));
  wakeUp();
}

bool Queue::tryPost(const RealtimeContext&, Task task) noexcept {
  const bool posted = mTasks.tryPush(std::move(task));
  wakeUp();
  return posted;
}

// One signal for any number of posts until the reader takes it.
void Queue::wakeUp() noexcept {
  if (!mWakePending.exchange(true)) {
    mWake->signal();
  }
}

void Queue::waitFor(void (*call)(const void*), const void* context) {
  if (isCurrent()) {
    std::fprintf(stderr, "sync on %s from itself would wait forever\n", mLabel.c_str());
    std::abort();
  }
  Semaphore& answered = mHost.threadSemaphore();
  mTasks.push(Task([call, context, &answered] {
    call(context);
    answered.signal();
  }));
  wakeUp();
  answered.wait();
}

void Queue::after(std::uint64_t delay, Task task) {
  mHost.timers().after(*this, delay, std::move(task));
}

bool Queue::isCurrent() const noexcept {
  return threadState().queue == this;
}

void Queue::assertCurrent() const {
#ifndef NDEBUG
  if (!isCurrent()) {
    std::fprintf(stderr, "not on queue %s\n", mLabel.c_str());
    std::abort();
  }
#endif
}

void Queue::drain() {
  Task task;
  while (mTasks.pop(task)) {
    if (mTasks.refused() != mRefusedReported) {
      reportRefused();
    }
    task();
    task.reset();
  }
}

void Queue::reportRefused() {
  const std::uint64_t refused = mTasks.refused();
  VELOR_LOG_ERROR("queue %s was full, %" PRIu64 " jobs were discarded", mLabel.c_str(),
                  refused - mRefusedReported);
  mRefusedReported = refused;
}

void Queue::runLoop() {
  threadState().queue = this;
  for (;;) {
    mWake->wait();
    // Cleared before the look: a job that comes during it signals again.
    acknowledgeWake();
    const bool ending = mEnding.load();
    drain();
    if (ending) {
      return;
    }
  }
}

MainQueue::MainQueue(Host& host)
    : Queue(host, "main", host.makeSemaphore(Host::Pollable::yes), WithoutThread{}) {
  threadState().queue = this;
}

void MainQueue::run() {
  while (!mStop.load()) {
    wake().wait();
    acknowledgeWake();
    drain();
  }
  drain();
  mStop.store(false);
}

void MainQueue::stop() noexcept {
  mStop.store(true);
  wakeUp();
}

bool MainQueue::drainUntil(std::uint64_t deadline) {
  if (!wake().waitUntil(deadline)) {
    return false;
  }
  acknowledgeWake();
  drain();
  return true;
}

bool MainQueue::drainPending() {
  while (wake().waitUntil(0)) {
  }
  acknowledgeWake();
  // Read first, so that the jobs posted before the stop have run.
  const bool isStopped = mStop.exchange(false);
  drain();
  return !isStopped;
}

}  // namespace velor::host
