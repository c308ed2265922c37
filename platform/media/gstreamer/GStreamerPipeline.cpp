// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/GStreamerPipeline.h"

#include <gst/audio/audio.h>
#include <gst/pbutils/missing-plugins.h>
#include <gst/video/video.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor::media {
namespace {

using host::kNsPerMs;

// A clip that has not shown anything by then is given up, ns.
constexpr std::uint64_t kOpenTime = 10'000 * kNsPerMs;
// One of which a part cannot be decoded may have others, ns.
constexpr std::uint64_t kMissingTime = 1'000 * kNsPerMs;
// A seek that takes longer has failed, ns.
constexpr std::uint64_t kSeekTime = 5'000 * kNsPerMs;
// Differences to the timeline before that are made up for without a seek, ns: forwards the
// decoder is fast enough, backwards the picture stands still.
constexpr std::int64_t kForwards = 400 * kNsPerMs;
constexpr std::int64_t kBackwards = 100 * kNsPerMs;
// Containers and callers round the start of a frame to a millisecond: a clip that stands shows
// the frame that begins so little later, ns.
constexpr std::int64_t kFrameSlack = 1 * kNsPerMs;
// A seek goes to where the timeline will be when it has ended: so much later, ns.
constexpr std::uint64_t kFirstSeek = 100 * kNsPerMs;
constexpr std::uint64_t kLeastLead = 20 * kNsPerMs;
constexpr std::uint64_t kMostLead = 900 * kNsPerMs;

// All of the clip is due early, for its sound, which waits in the ring for its cycle; the video
// sink waits as long (its ts-offset). A sink cannot be set early instead: it has no time below 0.
constexpr GstClockTime kEarlySound = 250 * kNsPerMs;
// Frames that are later than a frame of 25 a second are left out.
constexpr const char* kVideoChain =
    "queue max-size-buffers=4 max-size-bytes=0 max-size-time=0 ! videoconvert ! "
    "video/x-raw,format=BGRx ! appsink name=sink sync=true qos=false max-lateness=40000000 "
    "ts-offset=250000000 "
    "max-buffers=2";
constexpr const char* kAudioChain =
    "queue max-size-buffers=0 max-size-bytes=0 max-size-time=500000000 ! audioconvert ! "
    "audio/x-raw,format=F32LE,layout=non-interleaved ! "
    "appsink name=sink sync=true qos=false max-buffers=4";

std::uint64_t now() {
  return host::current().AudioGetCurrentHostTime();
}

std::string reasonOf(GstMessage& message) {
  GError* error = nullptr;
  gst_message_parse_error(&message, &error, nullptr);
  std::string reason = error != nullptr ? error->message : "unknown";
  if (g_error_matches(error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) != FALSE) {
    reason = "no installed plug-in of GStreamer decodes it";
  }
  g_clear_error(&error);
  return reason;
}

bool isOf(GstPad& pad, const char* kind) {
  CapsRef caps(gst_pad_get_current_caps(&pad));
  if (caps == nullptr) {
    caps.reset(gst_pad_query_caps(&pad, nullptr));
  }
  return caps != nullptr && gst_caps_get_size(caps.get()) > 0 &&
         g_str_has_prefix(gst_structure_get_name(gst_caps_get_structure(caps.get(), 0)), kind) !=
             FALSE;
}

}  // namespace

GStreamerPipeline::GStreamerPipeline(host::Queue& queue, const PlayerRequest& request,
                                     PipelineEvents& events)
    : mQueue(queue),
      mEvents(events),
      mWantsVideo(request.wantsVideo),
      mPipeline(gst_pipeline_new("player")),
      mFrameRate(std::numeric_limits<double>::quiet_NaN()),
      mSeekLasts(kFirstSeek) {
  gst_object_ref_sink(mPipeline.get());
  GstElement* source = gst_element_factory_make("uridecodebin", nullptr);
  if (source == nullptr) {
    fail("GStreamer's element uridecodebin is missing");
    return;
  }
  GError* error = nullptr;
  const GText uri(gst_filename_to_uri(std::filesystem::absolute(request.path).c_str(), &error));
  if (uri == nullptr) {
    fail(error->message);
    g_clear_error(&error);
    gst_object_unref(source);
    return;
  }
  // Nothing else is decoded, subtitles in particular.
  const CapsRef decoded(
      gst_caps_from_string(mWantsVideo ? "video/x-raw(ANY);audio/x-raw(ANY)" : "audio/x-raw(ANY)"));
  g_object_set(source, "uri", uri.get(), "caps", decoded.get(), "expose-all-streams", FALSE,
               nullptr);
  gst_bin_add(GST_BIN(mPipeline.get()), source);
  g_signal_connect(source, "pad-added", G_CALLBACK(&GStreamerPipeline::padAdded), this);
  g_signal_connect(source, "no-more-pads", G_CALLBACK(&GStreamerPipeline::padsComplete), this);
  mClock.drive(*mPipeline);
  const BusRef bus(gst_element_get_bus(mPipeline.get()));
  gst_bus_set_sync_handler(bus.get(), &GStreamerPipeline::busCall, this, nullptr);
  if (gst_element_set_state(mPipeline.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
    return;  // an error is on the bus
  }
  failUnlessReadyWithin(kOpenTime);
}

GStreamerPipeline::~GStreamerPipeline() {
  gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
  const BusRef bus(gst_element_get_bus(mPipeline.get()));
  gst_bus_set_sync_handler(bus.get(), nullptr, nullptr, nullptr);
}

// --- in GStreamer's threads

GstBusSyncReply GStreamerPipeline::busCall(GstBus* /*bus*/, GstMessage* message, gpointer self) {
  auto& pipeline = *static_cast<GStreamerPipeline*>(self);
  const auto* from = reinterpret_cast<const GstElement*>(GST_MESSAGE_SRC(message));
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_STATE_CHANGED:
      // A sink that has its first frame says so in any case, the pipeline only once it has
      // ended its own change of state.
      if (from != pipeline.mVideoSink.load() && from != pipeline.mAudioSink.load()) {
        gst_message_unref(message);
        return GST_BUS_DROP;
      }
      [[fallthrough]];
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_EOS:
    case GST_MESSAGE_TAG:
    case GST_MESSAGE_ELEMENT:
    case GST_MESSAGE_ASYNC_DONE:
      pipeline.mQueue.async([weak = std::weak_ptr(pipeline.mSelf),
                             kept = std::shared_ptr<GstMessage>(message, &gst_message_unref)] {
        if (const auto there = weak.lock()) {
          (*there)->handle(*kept);
        }
      });
      return GST_BUS_DROP;  // and the reference to it is ours
    default:
      gst_message_unref(message);
      return GST_BUS_DROP;
  }
}

// Sound of many channels often has no layout, and converters refuse to guess one: it gets the
// layout "none".
GstPadProbeReturn GStreamerPipeline::completeCaps(GstPad* /*pad*/, GstPadProbeInfo* info,
                                                  gpointer /*self*/) {
  GstEvent* event = gst_pad_probe_info_get_event(info);
  if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
    return GST_PAD_PROBE_OK;
  }
  GstCaps* caps = nullptr;
  gst_event_parse_caps(event, &caps);
  const GstStructure* form = gst_caps_get_structure(caps, 0);
  gint channels = 0;
  if (gst_structure_get_int(form, "channels", &channels) != FALSE && channels > 2 &&
      gst_structure_has_field(form, "channel-mask") == FALSE) {
    const CapsRef complete(gst_caps_copy(caps));
    gst_caps_set_simple(complete.get(), "channel-mask", GST_TYPE_BITMASK, guint64{0}, nullptr);
    GST_PAD_PROBE_INFO_DATA(info) = gst_event_new_caps(complete.get());
    gst_event_unref(event);
  }
  return GST_PAD_PROBE_OK;
}

void GStreamerPipeline::padAdded(GstElement* /*source*/, GstPad* pad, gpointer self) {
  static_cast<GStreamerPipeline*>(self)->link(*pad);
}

void GStreamerPipeline::padsComplete(GstElement* /*source*/, gpointer self) {
  auto& pipeline = *static_cast<GStreamerPipeline*>(self);
  pipeline.mQueue.async([weak = std::weak_ptr(pipeline.mSelf)] {
    if (const auto there = weak.lock()) {
      (*there)->mHasAllPads = true;
      (*there)->checkReady();
    }
  });
}

// The first of each kind.
void GStreamerPipeline::link(GstPad& pad) {
  const bool isVideo = mWantsVideo && mVideoSink.load() == nullptr && isOf(pad, "video/");
  const bool isAudio = !isVideo && mAudioSink.load() == nullptr && isOf(pad, "audio/");
  if (!isVideo && !isAudio) {
    return;
  }
  GError* error = nullptr;
  GstElement* chain =
      gst_parse_bin_from_description(isVideo ? kVideoChain : kAudioChain, TRUE, &error);
  if (error != nullptr) {
    GST_ELEMENT_ERROR(mPipeline.get(), CORE, MISSING_PLUGIN, ("%s", error->message), (nullptr));
    g_clear_error(&error);
    if (chain != nullptr) {
      gst_object_unref(gst_object_ref_sink(chain));
    }
    return;
  }
  const ElementRef sink(gst_bin_get_by_name(GST_BIN(chain), "sink"));
  GstAppSinkCallbacks callbacks{};
  if (isVideo) {
    callbacks.new_sample = &GStreamerPipeline::takeVideo;
    callbacks.new_preroll = &GStreamerPipeline::takeVideoPreroll;
  } else {
    callbacks.new_sample = &GStreamerPipeline::takeAudio;
    callbacks.new_preroll = &GStreamerPipeline::takeAudioPreroll;
  }
  gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);
  gst_bin_add(GST_BIN(mPipeline.get()), chain);
  (isVideo ? mVideoSink : mAudioSink).store(sink.get());
  const PadRef in(gst_element_get_static_pad(chain, "sink"));
  if (isAudio) {
    gst_pad_add_probe(&pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, &GStreamerPipeline::completeCaps,
                      nullptr, nullptr);
  }
  gst_pad_link(&pad, in.get());
  gst_element_sync_state_with_parent(chain);
}

GstFlowReturn GStreamerPipeline::takeVideo(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_sample(sink));
  if (sample == nullptr) {
    return GST_FLOW_EOS;
  }
  static_cast<GStreamerPipeline*>(self)->showSample(*sample);
  return GST_FLOW_OK;
}

// Of a clip that is opened or sought while it stands; one that is paused keeps its frame.
GstFlowReturn GStreamerPipeline::takeVideoPreroll(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_preroll(sink));
  auto& pipeline = *static_cast<GStreamerPipeline*>(self);
  if (sample != nullptr && pipeline.mShowsPreroll.load()) {
    pipeline.showSample(*sample);
  }
  return GST_FLOW_OK;
}

void GStreamerPipeline::showSample(GstSample& sample) {
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
  const std::uint64_t late = lateFrames();
  mLate += late >= mLateBefore ? late - mLateBefore : late;
  mLateBefore = late;
  mEvents.frameArrived(std::move(frame), mLate);
}

GstFlowReturn GStreamerPipeline::takeAudio(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_sample(sink));
  if (sample == nullptr) {
    return GST_FLOW_EOS;
  }
  static_cast<GStreamerPipeline*>(self)->playSample(*sample);
  return GST_FLOW_OK;
}

// The output opens while the clip does, not when it has to sound.
GstFlowReturn GStreamerPipeline::takeAudioPreroll(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_preroll(sink));
  GstAudioInfo info;
  if (sample != nullptr &&
      gst_audio_info_from_caps(&info, gst_sample_get_caps(sample.get())) != FALSE) {
    static_cast<GStreamerPipeline*>(self)->makeRing(static_cast<std::uint32_t>(info.channels),
                                                    info.rate);
  }
  return GST_FLOW_OK;
}

void GStreamerPipeline::makeRing(std::uint32_t channels, double rate) {
  if (mRing == nullptr || mRing->channels() != channels || mRing->rate() != rate) {
    mRing = mEvents.soundBegins(channels, rate);
  }
}

void GStreamerPipeline::playSample(GstSample& sample) {
  GstAudioInfo info;
  GstAudioBuffer mapped;
  GstBuffer* buffer = gst_sample_get_buffer(&sample);
  if (buffer == nullptr || gst_audio_info_from_caps(&info, gst_sample_get_caps(&sample)) == FALSE ||
      gst_audio_buffer_map(&mapped, &info, buffer, GST_MAP_READ) == FALSE) {
    return;
  }
  const auto channels = static_cast<std::uint32_t>(info.channels);
  makeRing(channels, info.rate);
  std::vector<float*> block;
  mBlock.resize(channels);
  for (std::uint32_t channel = 0; channel < channels; ++channel) {
    const auto* from = static_cast<const float*>(mapped.planes[channel]);
    mBlock[channel].assign(from, from + mapped.n_samples);
    block.push_back(mBlock[channel].data());
  }
  const std::size_t frames = mapped.n_samples;
  gst_audio_buffer_unmap(&mapped);
  if (const auto tap = mEvents.audioTap()) {
    const host::RealtimeContext realtime;
    tap->process(realtime, block, frames, frames);
  }
  const auto time = static_cast<std::int64_t>(gst_segment_to_stream_time(
      gst_sample_get_segment(&sample), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer)));
  mRing->write(std::llround(static_cast<double>(time) * 1e-9 * info.rate), block, frames);
}

// --- on the queue

void GStreamerPipeline::handle(GstMessage& message) {
  if (mHasFailed) {
    return;
  }
  switch (GST_MESSAGE_TYPE(&message)) {
    case GST_MESSAGE_ERROR:
      fail(mMissing.empty() ? reasonOf(message) : missingReason());
      break;
    case GST_MESSAGE_ELEMENT:
      if (gst_is_missing_plugin_message(&message) != FALSE) {
        const GText description(gst_missing_plugin_message_get_description(&message));
        mMissing = description.get();
        VELOR_LOG_WARNING("a part of the clip cannot be decoded: %s is missing", mMissing.c_str());
        failUnlessReadyWithin(kMissingTime);
      }
      break;
    case GST_MESSAGE_TAG: {
      GstTagList* tags = nullptr;
      gst_message_parse_tag(&message, &tags);
      char* title = nullptr;
      if (gst_tag_list_get_string(tags, GST_TAG_TITLE, &title) != FALSE) {
        mContents.title = GText(title).get();
      }
      gst_tag_list_unref(tags);
      break;
    }
    case GST_MESSAGE_ASYNC_DONE:
    case GST_MESSAGE_STATE_CHANGED:
      checkReady();
      checkSeek();
      break;
    case GST_MESSAGE_EOS:
      // One from before a seek comes while that is under way.
      if (mIsRunning && mSeekBegan == 0) {
        mIsAtEnd = true;
        end();
      }
      break;
    default:
      break;
  }
}

void GStreamerPipeline::fail(const std::string& reason) {
  if (mHasFailed) {
    return;
  }
  mHasFailed = true;
  mIsRunning = false;
  gst_element_set_state(mPipeline.get(), GST_STATE_NULL);
  mEvents.clipFailed(reason);
}

void GStreamerPipeline::failUnlessReadyWithin(std::uint64_t time) {
  mQueue.after(time, [weak = std::weak_ptr(mSelf)] {
    if (const auto self = weak.lock(); self != nullptr && !(*self)->mIsReady) {
      (*self)->fail((*self)->mMissing.empty() ? "nothing of it could be decoded in time"
                                              : (*self)->missingReason());
    }
  });
}

std::string GStreamerPipeline::missingReason() const {
  return "it needs \"" + mMissing +
         "\", which is not installed (try gstreamer1.0-plugins-bad or gstreamer1.0-plugins-ugly)";
}

bool GStreamerPipeline::isPrerolled() const {
  for (GstElement* sink : {mVideoSink.load(), mAudioSink.load()}) {
    if (sink != nullptr &&
        gst_element_get_state(sink, nullptr, nullptr, 0) == GST_STATE_CHANGE_ASYNC) {
      return false;
    }
  }
  return true;
}

// A clip is ready when each stream that is decoded has its first frame or block.
void GStreamerPipeline::checkReady() {
  if (mIsReady || mHasFailed || !mHasAllPads || !isPrerolled()) {
    return;
  }
  if (mVideoSink.load() == nullptr && mAudioSink.load() == nullptr) {
    fail("it has neither video nor sound");
    return;
  }
  gint64 duration = 0;
  if (gst_element_query_duration(mPipeline.get(), GST_FORMAT_TIME, &duration) == FALSE ||
      duration <= 0) {
    fail("it has no length, as a still picture has none");
    return;
  }
  mIsReady = true;
  mContents.duration = MediaTime(duration);
  mContents.frameRate = frameRate();
  mContents.audioChannels = audioChannels();
  mEvents.clipIsReady(mContents);
}

double GStreamerPipeline::frameRate() const {
  return mVideoSink.load() == nullptr ? std::numeric_limits<double>::quiet_NaN()
                                      : mFrameRate.load();
}

std::uint32_t GStreamerPipeline::audioChannels() const {
  GstElement* sink = mAudioSink.load();
  if (sink == nullptr) {
    return 0;
  }
  const PadRef pad(gst_element_get_static_pad(sink, "sink"));
  const CapsRef caps(gst_pad_get_current_caps(pad.get()));
  GstAudioInfo info;
  return caps != nullptr && gst_audio_info_from_caps(&info, caps.get()) != FALSE
             ? static_cast<std::uint32_t>(info.channels)
             : 0;
}

// The sound has been pulled before it is heard, and a file that was cut off ends before its time.
void GStreamerPipeline::end() {
  const std::int64_t left = mContents.duration.count() - mTimeline.at(now());
  if (left > 0) {
    const double wait = static_cast<double>(left) / mTimeline.rate;
    mQueue.after(static_cast<std::uint64_t>(wait), [weak = std::weak_ptr(mSelf), serial = mSerial] {
      const auto self = weak.lock();
      if (self != nullptr && (*self)->mIsAtEnd && (*self)->mSerial == serial) {
        (*self)->end();
      }
    });
    return;
  }
  mIsRunning = false;
  mShowsPreroll = false;
  gst_element_set_state(mPipeline.get(), GST_STATE_PAUSED);
  mEvents.clipEnded(mSerial);
}

std::uint64_t GStreamerPipeline::lateFrames() const {
  GstElement* sink = mVideoSink.load();
  if (sink == nullptr) {
    return 0;
  }
  GstStructure* stats = nullptr;
  g_object_get(sink, "stats", &stats, nullptr);
  guint64 dropped = 0;
  gst_structure_get_uint64(stats, "dropped", &dropped);
  gst_structure_free(stats);
  return dropped;
}

void GStreamerPipeline::follow(const PlayerTimeline& timeline, bool seek, std::uint64_t serial) {
  if (!mIsReady || mHasFailed) {
    return;
  }
  const std::uint64_t time = now();
  const std::int64_t ahead = timeline.at(time) - mTimeline.at(time);
  const bool isNear = mIsRunning && ahead <= kForwards && ahead >= -kBackwards;
  if (timeline.rate > 0) {
    if (seek || !isNear) {
      mShowsPreroll = false;
      this->seek(timeline, time, serial);
    } else {
      mapClock(timeline, time);
    }
    if (!std::exchange(mIsRunning, true)) {
      gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING);
    }
  } else {
    mShowsPreroll = false;
    if (std::exchange(mIsRunning, false)) {
      gst_element_set_state(mPipeline.get(), GST_STATE_PAUSED);
    } else {
      seek = seek || ahead != 0;
    }
    if (seek) {
      mShowsPreroll = true;
      this->seek(timeline, time, serial);
    }
  }
  mTimeline = timeline;
  mSerial = serial;
  if (mIsAtEnd && mIsRunning) {
    end();
  }
}

void GStreamerPipeline::mapClock(const PlayerTimeline& timeline, std::uint64_t time) {
  const GstClockTime base = mClock.map(timeline, time) - kEarlySound;
  gst_element_set_base_time(mPipeline.get(), base);
  if (GstElement* sink = mVideoSink.load(); sink != nullptr) {
    gst_element_set_base_time(sink, base);
  }
  if (GstElement* sink = mAudioSink.load(); sink != nullptr) {
    gst_element_set_base_time(sink, base);
  }
}

// To where the timeline will be when that is done.
void GStreamerPipeline::seek(const PlayerTimeline& timeline, std::uint64_t time,
                             std::uint64_t serial) {
  std::uint64_t lead = std::clamp(mSeekLasts * 5 / 4, kLeastLead, kMostLead);
  if (timeline.at(time) <= 0) {
    lead = 0;  // the clip's first sound is still to come
  }
  const std::int64_t to = std::clamp<std::int64_t>(
      timeline.rate > 0 ? timeline.at(time + lead) : timeline.position + kFrameSlack, 0,
      mContents.duration.count());
  // A frame that begins before the position gets that as its time.
  mStandsAt = timeline.rate > 0 ? -1 : to;
  mSeekBegan = time;
  mIsAtEnd = false;
  mClock.setSegmentStart(to);
  mapClock(timeline, time);
  const bool isSought =
      gst_element_seek(mPipeline.get(), 1, GST_FORMAT_TIME,
                       static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                       GST_SEEK_TYPE_SET, to, GST_SEEK_TYPE_NONE, -1) != FALSE;
  // The flush has set the base times back.
  mapClock(timeline, now());
  mSerial = serial;
  if (!isSought) {
    mSeekBegan = 0;
    mEvents.seekEnded(serial, false);
    return;
  }
  mQueue.after(kSeekTime, [weak = std::weak_ptr(mSelf), time] {
    if (const auto self = weak.lock(); self != nullptr && (*self)->mSeekBegan == time) {
      (*self)->mSeekBegan = 0;
      (*self)->mEvents.seekEnded((*self)->mSerial, false);
    }
  });
  checkSeek();
}

void GStreamerPipeline::checkSeek() {
  if (mSeekBegan == 0 || !isPrerolled()) {
    return;
  }
  mSeekLasts = now() - std::exchange(mSeekBegan, 0);
  mEvents.seekEnded(mSerial, true);
}

}  // namespace velor::media
