// SPDX-License-Identifier: MIT
#pragma once

#include <gst/gst.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/host/Queue.h"
#include "platform/media/AudioTap.h"
#include "platform/media/PlayerTypes.h"
#include "platform/media/VideoFrame.h"
#include "platform/media/gstreamer/GStreamerLibrary.h"
#include "platform/media/gstreamer/PipelineClock.h"
#include "platform/media/gstreamer/PlayerTimeline.h"
#include "platform/media/gstreamer/SoundRing.h"
#include "platform/media/gstreamer/SoundSink.h"
#include "platform/media/gstreamer/VideoSink.h"

namespace velor::media {

/// What a clip turned out to hold.
struct ClipContents {
  MediaTime duration{};
  std::string title;
  double frameRate = 0;             ///< of the video; NaN without one
  std::uint32_t audioChannels = 0;  ///< 0 without sound
};

/// Gets what happens in a pipeline.
class PipelineEvents {
 public:
  // Queue: the pipeline's.
  virtual void clipIsReady(const ClipContents& contents) = 0;
  virtual void clipFailed(const std::string& reason) = 0;
  /// The frame at the position is there; `isDone` is false when that takes far too long.
  virtual void seekEnded(std::uint64_t serial, bool isDone) = 0;
  /// The last frame of what `follow` began has ended.
  virtual void clipEnded(std::uint64_t serial) = 0;

  // Threads: GStreamer's.
  /// `late`: frames so far that came too late to be shown.
  virtual void frameArrived(std::shared_ptr<const VideoFrame> frame, std::uint64_t late) = 0;
  /// The clip's sound has this form; comes before any block of it.
  virtual std::shared_ptr<SoundRing> soundBegins(std::vector<SoundSide> sides, double rate) = 0;
  virtual std::shared_ptr<AudioTap> audioTap() = 0;

 protected:
  ~PipelineEvents() = default;
};

/// The decoding of one clip: frames of its video at the host times that a timeline gives them,
/// blocks of its sound some time before. Queue: that of its player, on which it is made, used
/// and ended.
class GStreamerPipeline {
 public:
  GStreamerPipeline(host::Queue& queue, const PlayerRequest& request, PipelineEvents& events);
  ~GStreamerPipeline();
  GStreamerPipeline(const GStreamerPipeline&) = delete;
  GStreamerPipeline& operator=(const GStreamerPipeline&) = delete;

  /// Goes by the timeline from now on. With `seek`, or when that is too far from the one
  /// before, it seeks; `serial` names what it does in reports.
  void follow(const PlayerTimeline& timeline, bool seek, std::uint64_t serial);

 private:
  static GstBusSyncReply busCall(GstBus* bus, GstMessage* message, gpointer self);
  static void padAdded(GstElement* source, GstPad* pad, gpointer self);
  static void padsComplete(GstElement* source, gpointer self);

  void link(GstPad& pad);

  void handle(GstMessage& message);
  void fail(const std::string& reason);
  void failUnlessReadyWithin(std::uint64_t time);
  std::string missingReason() const;
  void checkReady();
  bool isPrerolled() const;
  void checkSeek();
  void mapClock(const PlayerTimeline& timeline, std::uint64_t time);
  void end();
  void seek(const PlayerTimeline& timeline, std::uint64_t now, std::uint64_t serial);

  host::Queue& mQueue;
  PipelineEvents& mEvents;
  const bool mWantsVideo;

  ElementRef mPipeline;
  PipelineClock mClock;
  VideoSink mVideo;
  SoundSink mSound;

  // The queue's.
  ClipContents mContents;
  std::string mMissing;  // a decoder that is not installed
  bool mHasAllPads = false;
  bool mWillBeReady = false;
  bool mIsReady = false;
  bool mHasFailed = false;
  bool mIsRunning = false;
  bool mIsAtEnd = false;  // the pipeline; what was pulled early may still have to sound
  PlayerTimeline mTimeline;
  std::uint64_t mSerial = 0;
  std::uint64_t mSeekBegan = 0;  // host time; 0 while none is under way
  std::uint64_t mSeekLasts;      // ns, of the latest one
  // Jobs of the queue that outlive this do nothing.
  const std::shared_ptr<GStreamerPipeline*> mSelf = std::make_shared<GStreamerPipeline*>(this);
};

}  // namespace velor::media
