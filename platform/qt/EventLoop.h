// SPDX-License-Identifier: MIT
#pragma once

#include <exception>

#include "platform/host/MainLoop.h"
#include "platform/host/Queue.h"

namespace velor::qt {

/// The main loop of windows: Qt's, which runs the jobs of the main queue between events. Any
/// stop of the main queue ends it. Needs the application object.
class EventLoop final : public host::MainLoop {
 public:
  /// The queue must have a descriptor, as that of the real host has.
  explicit EventLoop(host::MainQueue& queue) : mQueue(queue) {}

  void run() override;
  void stop() noexcept override { mQueue.stop(); }

 private:
  void drain() noexcept;

  host::MainQueue& mQueue;
  std::exception_ptr mFailure;  // of a job
};

}  // namespace velor::qt
