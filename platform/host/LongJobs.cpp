// SPDX-License-Identifier: MIT
#include "platform/host/LongJobs.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/host/Host.h"

namespace velor::host {

struct LongJobs::Running {
  Job job;
  std::atomic<bool> done{false};
  std::unique_ptr<Thread> thread;  // the queue's
};

// Jobs that outlived their queue. At the end of the process the finished ones are
// joined; the others end with the process.
struct LongJobs::LeftBehind {
  ~LeftBehind() {
    for (const auto& each : list) {
      if (each->done.load()) {
        each->thread->join();
      } else {
        // Still reachable at the end, or a check for leaks would report it.
        static auto& unfinished =
            *std::make_unique<std::vector<std::unique_ptr<Thread>>>().release();
        unfinished.push_back(std::move(each->thread));
      }
    }
  }
  static void add(std::shared_ptr<Running> running) {
    static std::mutex mutex;
    static LeftBehind all;
    const std::lock_guard lock(mutex);
    all.list.push_back(std::move(running));
  }

  std::vector<std::shared_ptr<Running>> list;
};

// State that a thread may use after the queue has ended.
struct LongJobs::Gate {
  std::mutex mutex;
  LongJobs* jobs;  // under mutex; null after its end
};

LongJobs::LongJobs(Queue& queue) : mQueue(queue), mGate(std::make_shared<Gate>()) {
  mGate->jobs = this;
}

LongJobs::~LongJobs() {
  {
    const std::lock_guard lock(mGate->mutex);
    mGate->jobs = nullptr;
  }
  for (const auto& running : mRunning) {
    if (running->job.cancel) {
      running->job.cancel();
    }
    if (running->job.cancel || running->done.load()) {
      running->thread->join();
    } else {
      LeftBehind::add(running);
    }
  }
}

void LongJobs::add(Job job) {
  mQueue.assertCurrent();
  auto running = std::make_shared<Running>();
  running->job = std::move(job);
  mWaiting.push_back(std::move(running));
  startNext();
}

void LongJobs::startNext() {
  while (!mWaiting.empty() && mRunning.size() < kMostThreads) {
    const std::shared_ptr<Running> running = std::move(mWaiting.front());
    mWaiting.pop_front();
    mRunning.push_back(running);
    running->thread = current().startThread("velor.longjob", [gate = mGate, running] {
      running->job.run();
      running->done.store(true);
      const std::lock_guard lock(gate->mutex);
      if (LongJobs* jobs = gate->jobs) {
        jobs->mQueue.async([jobs, running] {
          jobs->mQueue.assertCurrent();
          jobs->ended(running);
        });
      }
    });
    if (running->thread == nullptr) {
      std::erase(mRunning, running);
      running->job.done();
    }
  }
}

void LongJobs::ended(const std::shared_ptr<Running>& running) {
  running->thread->join();  // it has nothing left to do
  std::erase(mRunning, running);
  running->job.done();
  startNext();
}

}  // namespace velor::host
