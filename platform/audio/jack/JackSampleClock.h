// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/audio/AudioTypes.h"
#include "platform/host/Seqlock.h"
#include "platform/jack/JackTimeBase.h"

namespace velor::audio {

/// The count of samples that all devices of a server share, against host time: a line
/// through the start of the last cycle, with a rate that is measured over seconds. One
/// cycle is too short for that: the server gives its length in whole microseconds, which is
/// about 100 ppm of a short cycle.
class JackSampleClock {
 public:
  /// Process callback alone. Realtime-safe: yes.
  void advance(const jack::JackCycle& cycle) noexcept;
  /// The server went. Not while the process callback runs.
  void stop() noexcept { mRunning.store(false); }

  /// As AudioDeviceTranslateTime. Any thread. Realtime-safe: yes.
  OSStatus translate(const AudioTimeStamp& in, AudioTimeStamp& out) const noexcept;

 private:
  struct Line {
    std::uint64_t frame = 0;
    std::uint64_t time = 0;  // ns
    double framesPerNs = 0;
  };
  struct Mark {
    std::uint64_t frame = 0;
    std::uint64_t time = 0;
  };

  double measuredRate(const jack::JackCycle& cycle) noexcept;

  // The process callback's own: the rate is taken from the older mark, which the
  // newer one follows up.
  struct {
    Mark older;
    Mark newer;
    std::uint32_t epoch = 0;
  } rt;

  host::Seqlocked<Line> mLine;
  std::atomic<bool> mRunning{false};
};

}  // namespace velor::audio
