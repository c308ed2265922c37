// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>

#include "platform/host/Realtime.h"
#include "platform/jack/JackTimeBase.h"

namespace velor::jack {

/// A back end that shares the JACK client. All but `process` is called on the
/// client's queue.
class JackParticipant {
 public:
  virtual ~JackParticipant() = default;

  /// There is a server, and the client is active: ports can be registered. A rescan follows.
  virtual void opened() = 0;
  /// The client has gone, and its ports with it; the process callback has ended.
  virtual void closed() = 0;
  /// Ports of other clients, their names for people, latencies, rate or period may
  /// have changed. `renewed`: full names of ports that were registered since the last
  /// rescan; one may have been missing too briefly to be noticed.
  virtual void rescan(const std::set<std::string>& renewed) = 0;
  /// The client's xruns() has grown.
  virtual void xrunsChanged() {}
  /// Every few seconds while the client is open: logs what the process callback could only
  /// count.
  virtual void report() {}

  /// In the process callback of the library.
  virtual void process(const host::RealtimeContext& realtime, const JackCycle& cycle) noexcept = 0;
};

}  // namespace velor::jack
