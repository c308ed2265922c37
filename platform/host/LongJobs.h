// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "platform/host/Queue.h"

namespace velor::host {

/// Jobs that wait for the system longer than any queue may, such as the look-up of
/// a host's name, which can need half a minute to find nothing: each on a thread of
/// its own, with a report on a queue.
class LongJobs {
 public:
  struct Job {
    /// On the thread. Touches nothing that ends with the queue.
    std::function<void()> run;
    /// Makes `run` return soon; empty where nothing can.
    std::function<void()> cancel;
    /// On the queue, after `run`, or without it when the system has no thread left.
    std::function<void()> done;
  };

  /// Jobs under way at once; the others wait for their turn.
  static constexpr std::size_t kMostThreads = 16;

  /// All of it runs on the queue.
  explicit LongJobs(Queue& queue);
  /// Reports nothing more. A job that cannot be cancelled is left to end by
  /// itself, so that the program need not wait for it. Any thread, once the queue
  /// runs nothing.
  ~LongJobs();
  LongJobs(const LongJobs&) = delete;
  LongJobs& operator=(const LongJobs&) = delete;

  void add(Job job);

 private:
  struct Running;
  struct LeftBehind;
  struct Gate;

  void startNext() KV_RUNS_ON(mQueue);
  void ended(const std::shared_ptr<Running>& running) KV_RUNS_ON(mQueue);

  Queue& mQueue;
  const std::shared_ptr<Gate> mGate;
  std::deque<std::shared_ptr<Running>> mWaiting;   // the queue's
  std::vector<std::shared_ptr<Running>> mRunning;  // the queue's
};

}  // namespace velor::host
