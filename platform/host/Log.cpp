// SPDX-License-Identifier: MIT
#include "platform/host/Log.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <shared_mutex>

#include "platform/host/LogProblem.h"
#include "platform/host/LogTail.h"
#include "platform/host/Realtime.h"

namespace velor::host {
namespace {

struct SinkSlot {
  std::shared_mutex mutex;
  LogSink sink;
  std::mutex problemMutex;
  LogProblem problem;  // under problemMutex
};

// Never destroyed: threads may log while the process ends.
SinkSlot& sinkSlot() {
  static auto* slot = new SinkSlot;
  return *slot;
}

}  // namespace

int& realtimeDepth() noexcept {
  static thread_local int depth = 0;
  return depth;
}

void setLogSink(LogSink sink) {
  SinkSlot& slot = sinkSlot();
  const std::unique_lock lock(slot.mutex);
  slot.sink = std::move(sink);
}

LogProblem lastLogProblem() {
  SinkSlot& slot = sinkSlot();
  const std::lock_guard lock(slot.problemMutex);
  return slot.problem;
}

void log(LogLevel level, const char* format, ...) {
  if (realtimeDepth() != 0) {
    // The guard's own check sees only allocations; say what the fault is.
    std::fputs("log call inside a real-time scope\n", stderr);
    std::abort();
  }
  if ((level & kLogLevelsWritten) == 0) {
    return;
  }
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);

  LogTail::shared().add(line);
  SinkSlot& slot = sinkSlot();
  if ((level & (kLogError | kLogWarning)) != 0) {
    const std::lock_guard lock(slot.problemMutex);
    slot.problem = {slot.problem.number + 1, line};
  }
  const std::shared_lock lock(slot.mutex);
  if (slot.sink) {
    slot.sink(level, line);
  }
}

}  // namespace velor::host
