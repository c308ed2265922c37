// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/PipelineClock.h"

#include <cmath>

namespace velor::media {
namespace {

// Ahead of the host's clock, so that no base time is below 0.
constexpr GstClockTime kAhead = 1'000'000'000'000'000;
constexpr GstClockTime kRateUnit = 10'000'000;

}  // namespace

PipelineClock::PipelineClock()
    : mClock(GST_CLOCK(g_object_new(GST_TYPE_SYSTEM_CLOCK, "clock-type", GST_CLOCK_TYPE_MONOTONIC,
                                    "name", "velor", nullptr))) {
  gst_object_ref_sink(mClock.get());
  const GstClockTime now = gst_clock_get_internal_time(mClock.get());
  gst_clock_set_calibration(mClock.get(), now, now + kAhead, 1, 1);
}

void PipelineClock::drive(GstElement& pipeline) {
  gst_pipeline_use_clock(GST_PIPELINE(&pipeline), mClock.get());
  gst_pipeline_set_latency(GST_PIPELINE(&pipeline), 0);
  gst_element_set_start_time(&pipeline, GST_CLOCK_TIME_NONE);
}

GstClockTime PipelineClock::map(const PlayerTimeline& timeline, std::uint64_t now) {
  GstClockTime internal = 0;
  GstClockTime external = 0;
  GstClockTime numerator = 1;
  GstClockTime denominator = 1;
  gst_clock_get_calibration(mClock.get(), &internal, &external, &numerator, &denominator);
  // The clock's own time goes on evenly; only the base time jumps.
  const GstClockTime ours = gst_clock_adjust_with_calibration(mClock.get(), now, internal, external,
                                                              numerator, denominator);
  const double rate = timeline.rate > 0 ? timeline.rate : 1;
  gst_clock_set_calibration(
      mClock.get(), now, ours,
      static_cast<GstClockTime>(std::llround(rate * static_cast<double>(kRateUnit))), kRateUnit);
  return static_cast<GstClockTime>(static_cast<std::int64_t>(ours) -
                                   (timeline.at(now) - mSegmentStart));
}

}  // namespace velor::media
