// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/host/WeakSelf.h"

namespace velor {

class VLClock;

/// Reports the run to the service manager that started the program (sd_notify(3)): ready when
/// it is made, stopping when it ends. If the manager watches the program, it gets a sign of
/// life twice in its interval, after the clock's queue and then the main queue have run a job.
/// A program in which one of them hangs sends none, and the manager starts it again. Without
/// such a manager nothing happens. Main thread.
class VLServiceReports {
 public:
  /// The clock outlives it.
  explicit VLServiceReports(VLClock& clock);
  ~VLServiceReports();
  VLServiceReports(const VLServiceReports&) = delete;
  VLServiceReports& operator=(const VLServiceReports&) = delete;

 private:
  void askClock();
  void reportAlive();

  VLClock& mClock;
  std::uint64_t mInterval = 0;  // ns
  const host::WeakSelf<VLServiceReports> mSelf{this};
};

}  // namespace velor
