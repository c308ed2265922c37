// SPDX-License-Identifier: MIT
#pragma once

namespace velor::host {

/// Whoever owns the main thread and runs the jobs of the main queue there: the queue itself
/// (MainQueue), or the loop of a toolkit around it. One at a time.
class MainLoop {
 public:
  virtual ~MainLoop() = default;

  /// Runs jobs until `stop` was called; those posted before that have run. Also takes a stop
  /// that came before, and lets out the exception of a job. The main thread alone.
  virtual void run() = 0;

  /// Ends `run`, or else the next one. Any thread; async-signal-safe on the real host.
  virtual void stop() noexcept = 0;
};

}  // namespace velor::host
