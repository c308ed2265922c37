// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/media/gstreamer/StreamSink.h"

namespace velor::media {

class PipelineEvents;

/// Hands over the frames of a clip's video when they are due.
class VideoSink final : public StreamSink {
 public:
  explicit VideoSink(PipelineEvents& events);

  // Queue: the pipeline's.

  /// Frames a second, 0 where they have no steady rate; NaN without video.
  double frameRate() const;
  /// Whether the first frame is shown of a clip that is opened or sought while it stands; one
  /// that pauses keeps the frame that it shows.
  void setShowsPreroll(bool shows) { mShowsPreroll = shows; }
  /// The position (ns) to which a clip that stands was sought; -1 while it runs.
  void setStandsAt(std::int64_t position) { mStandsAt = position; }

 private:
  void take(GstSample& sample) override;
  void takePreroll(GstSample& sample) override;
  std::uint64_t dropped() const;

  PipelineEvents& mEvents;
  std::atomic<bool> mShowsPreroll{true};
  std::atomic<std::int64_t> mStandsAt{-1};
  std::atomic<double> mFrameRate;
  std::uint64_t mLate = 0;        // frames so far
  std::uint64_t mLateBefore = 0;  // as the sink counted them at the frame before
};

/// Containers and callers round the start of a frame to a millisecond: a clip that stands shows
/// the frame that begins at most so much later, ns.
inline constexpr std::int64_t kFrameSlack = 1'000'000;

}  // namespace velor::media
