// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/media/gstreamer/GStreamerLibrary.h"
#include "platform/media/gstreamer/PlayerTimeline.h"

namespace velor::media {

/// Makes a pipeline go by a timeline without a seek: the pipeline has a clock of its own, which
/// runs at the timeline's rate, and base times that put each frame where the timeline has it.
/// All segments have the rate 1, so that no decoder or sink knows of rates.
class PipelineClock {
 public:
  PipelineClock();

  /// The pipeline goes by this clock from now on and leaves its base time alone.
  void drive(GstElement& pipeline);

  /// Where the segment of the latest seek begins in the clip, ns.
  void setSegmentStart(std::int64_t position) { mSegmentStart = position; }

  /// Goes by the timeline from now on; the base time with which a sink shows each position at the
  /// host time that the timeline gives it. `now`: host time. A rate of 0 counts as 1: nothing runs
  /// by the clock then.
  GstClockTime map(const PlayerTimeline& timeline, std::uint64_t now);

 private:
  ClockRef mClock;
  std::int64_t mSegmentStart = 0;
};

}  // namespace velor::media
