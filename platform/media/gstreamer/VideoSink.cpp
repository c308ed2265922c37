// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/VideoSink.h"

#include <gst/video/video.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

#include "platform/media/VideoFrame.h"
#include "platform/media/gstreamer/GStreamerPipeline.h"

namespace velor::media {
namespace {

// The flip turns what a phone recorded upright; it copies no frame of a clip without such a tag.
// The sink waits as long as the clip is due early for its sound (its ts-offset). Frames that
// are later than a frame of 25 a second are left out.
constexpr const char* kChain =
    "queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! videoconvert ! "
    "video/x-raw,format=BGRx ! videoflip video-direction=auto ! appsink name=sink sync=true "
    "qos=false max-lateness=40000000 "
    "ts-offset=250000000 max-buffers=2";

}  // namespace

VideoSink::VideoSink(PipelineEvents& events)
    : StreamSink(kChain), mEvents(events), mFrameRate(std::numeric_limits<double>::quiet_NaN()) {}

double VideoSink::frameRate() const {
  return mFrameRate.load();
}

void VideoSink::takePreroll(GstSample& sample) {
  if (mShowsPreroll.load()) {
    take(sample);
  }
}

void VideoSink::take(GstSample& sample) {
  GstVideoInfo info;
  GstBuffer* buffer = gst_sample_get_buffer(&sample);
  if (buffer == nullptr || gst_video_info_from_caps(&info, gst_sample_get_caps(&sample)) == FALSE) {
    return;
  }
  if (info.fps_n > 0 && info.fps_d > 0) {
    mFrameRate = static_cast<double>(info.fps_n) / info.fps_d;
  }
  auto mapped = std::shared_ptr<GstVideoFrame>(new GstVideoFrame{}, [](GstVideoFrame* frame) {
    if (frame->buffer != nullptr) {
      gst_video_frame_unmap(frame);
    }
    delete frame;
  });
  if (gst_video_frame_map(mapped.get(), &info, buffer, GST_MAP_READ) == FALSE) {
    mapped->buffer = nullptr;
    return;
  }
  auto frame = std::make_shared<VideoFrame>();
  frame->time = MediaTime(static_cast<std::int64_t>(gst_segment_to_stream_time(
      gst_sample_get_segment(&sample), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer))));
  if (frame->time.count() == mStandsAt.load()) {
    frame->time -= MediaTime(kFrameSlack);
  }
  frame->width = info.width;
  frame->height = info.height;
  frame->bytesPerRow = static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(mapped.get(), 0));
  frame->data = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(mapped.get(), 0));
  frame->pixelAspect = static_cast<double>(info.par_n) / std::max(info.par_d, 1);
  frame->owner = std::move(mapped);
  // A seek makes the sink count from 0.
  const std::uint64_t late = dropped();
  mLate += late >= mLateBefore ? late - mLateBefore : late;
  mLateBefore = late;
  mEvents.frameArrived(std::move(frame), mLate);
}

std::uint64_t VideoSink::dropped() const {
  GstStructure* stats = nullptr;
  g_object_get(element(), "stats", &stats, nullptr);
  guint64 dropped = 0;
  gst_structure_get_uint64(stats, "dropped", &dropped);
  gst_structure_free(stats);
  return dropped;
}

}  // namespace velor::media
