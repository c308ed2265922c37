// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/GStreamerPipeline.h"

#include <gst/pbutils/missing-plugins.h>

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
// A clip of which one stream cannot be decoded may have others; they get so long, ns.
constexpr std::uint64_t kMissingTime = 1'000 * kNsPerMs;
// A seek that takes longer has failed, ns.
constexpr std::uint64_t kSeekTime = 5'000 * kNsPerMs;
// Differences to the timeline before that are made up for without a seek, ns: forwards the
// decoder is fast enough, backwards the picture stands still.
constexpr std::int64_t kForwards = 400 * kNsPerMs;
constexpr std::int64_t kBackwards = 100 * kNsPerMs;
// A seek goes to where the timeline will be when it has ended: so much later, ns.
constexpr std::uint64_t kFirstSeek = 100 * kNsPerMs;
constexpr std::uint64_t kLeastLead = 20 * kNsPerMs;
constexpr std::uint64_t kMostLead = 900 * kNsPerMs;

// All of the clip is due early, for its sound, which waits in the ring for its cycle; the video
// sink waits as long (its ts-offset). A sink cannot be set early instead: it has no time below 0.
constexpr GstClockTime kEarlySound = 250 * kNsPerMs;

std::uint64_t now() {
  return host::current().AudioGetCurrentHostTime();
}

std::string reasonOf(GstMessage& message) {
  GError* error = nullptr;
  gst_message_parse_error(&message, &error, nullptr);
  std::string reason = error != nullptr ? error->message : "unknown";
  if (g_error_matches(error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN) != FALSE) {
    reason = "no installed plug-in of GStreamer decodes it";
  } else if (g_error_matches(error, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ) != FALSE) {
    reason = "the file could not be read; check its disk";
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
      mVideo(events),
      mSound(events),
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
      if (from != pipeline.mVideo.element() && from != pipeline.mSound.element()) {
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

// Of each kind the first, where it is wanted.
void GStreamerPipeline::link(GstPad& pad) {
  if (mWantsVideo && mVideo.element() == nullptr && isOf(pad, "video/")) {
    mVideo.link(*mPipeline, pad);
  } else if (mSound.element() == nullptr && isOf(pad, "audio/")) {
    mSound.link(*mPipeline, pad);
  }
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
  for (GstElement* sink : {mVideo.element(), mSound.element()}) {
    if (sink != nullptr &&
        gst_element_get_state(sink, nullptr, nullptr, 0) == GST_STATE_CHANGE_ASYNC) {
      return false;
    }
  }
  return true;
}

// A clip is ready when each stream that is decoded has its first frame or block.
void GStreamerPipeline::checkReady() {
  if (mWillBeReady || mHasFailed || !mHasAllPads || !isPrerolled()) {
    return;
  }
  if (mVideo.element() == nullptr && mSound.element() == nullptr) {
    fail("it has neither video nor sound");
    return;
  }
  // The end of a stream counts as its first sample.
  if (!mVideo.hasSample() && !mSound.hasSample()) {
    fail("the file is cut off before its first picture or sound");
    return;
  }
  gint64 duration = 0;
  if (gst_element_query_duration(mPipeline.get(), GST_FORMAT_TIME, &duration) == FALSE ||
      duration <= 0) {
    fail("it has no length, as a still picture has none");
    return;
  }
  mWillBeReady = true;
  mContents.duration = MediaTime(duration);
  mContents.frameRate = mVideo.frameRate();
  mContents.audioChannels = mSound.channels();
  // The sinks are ahead of what they told: the title may be queued behind what is handled now.
  mQueue.async([weak = std::weak_ptr(mSelf)] {
    if (const auto self = weak.lock(); self != nullptr && !(*self)->mHasFailed) {
      (*self)->mIsReady = true;
      (*self)->mEvents.clipIsReady((*self)->mContents);
    }
  });
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
  mVideo.setShowsPreroll(false);
  gst_element_set_state(mPipeline.get(), GST_STATE_PAUSED);
  mEvents.clipEnded(mSerial);
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
      mVideo.setShowsPreroll(false);
      this->seek(timeline, time, serial);
    } else {
      mapClock(timeline, time);
    }
    if (!std::exchange(mIsRunning, true)) {
      gst_element_set_state(mPipeline.get(), GST_STATE_PLAYING);
    }
  } else {
    mVideo.setShowsPreroll(false);
    if (std::exchange(mIsRunning, false)) {
      gst_element_set_state(mPipeline.get(), GST_STATE_PAUSED);
    } else {
      seek = seek || ahead != 0;
    }
    if (seek) {
      mVideo.setShowsPreroll(true);
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
  if (GstElement* sink = mVideo.element(); sink != nullptr) {
    gst_element_set_base_time(sink, base);
  }
  if (GstElement* sink = mSound.element(); sink != nullptr) {
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
  mVideo.setStandsAt(timeline.rate > 0 ? -1 : to);
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
