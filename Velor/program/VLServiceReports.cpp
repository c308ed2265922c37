// SPDX-License-Identifier: MIT
#include "Velor/program/VLServiceReports.h"

#include <systemd/sd-daemon.h>

#include "Velor/clock/VLClock.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr std::uint64_t kNsPerUs = 1'000;

}  // namespace

VLServiceReports::VLServiceReports(VLClock& clock) : mClock(clock) {
  sd_notify(0, "READY=1");
  std::uint64_t limit = 0;  // µs
  if (sd_watchdog_enabled(0, &limit) > 0) {
    mInterval = limit * kNsPerUs / 2;
    askClock();
  }
}

VLServiceReports::~VLServiceReports() {
  sd_notify(0, "STOPPING=1");
}

void VLServiceReports::askClock() {
  mClock.whenQueueAnswers(mSelf.job([](VLServiceReports& self) { self.reportAlive(); }));
}

void VLServiceReports::reportAlive() {
  sd_notify(0, "WATCHDOG=1");
  host::current().mainQueue().after(mInterval,
                                    mSelf.job([](VLServiceReports& self) { self.askClock(); }));
}

}  // namespace velor
