// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/host/Host.h"

namespace velor::host {

/// The scheduling classes that a real-time thread tries, best first.
enum class RealtimeGrant {
  fifo,           ///< SCHED_FIFO
  rtkitRealtime,  ///< real-time by the rtkit service
  rtkitNice,      ///< a high priority by the rtkit service
  ordinary,       ///< an ordinary thread with the finest timer slack
};

/// The attempts for the calling thread, each true when it was granted; a table,
/// so that a test can refuse them one by one.
struct RealtimeAttempts {
  bool (*fifo)(int priority) noexcept;
  bool (*rtkitRealtime)(int priority) noexcept;
  bool (*rtkitNice)() noexcept;
  void (*finestTimerSlack)() noexcept;
};

/// The attempts on this system.
extern const RealtimeAttempts kSystemRealtimeAttempts;

/// Goes down the order of classes for the calling thread.
RealtimeGrant takeRealtimeClass(ThreadRole role, const RealtimeAttempts& attempts) noexcept;

/// The warning for a class below the first: what was refused, and the remedy.
/// Empty for RealtimeGrant::fifo.
std::string realtimeWarning(RealtimeGrant grant);

}  // namespace velor::host
