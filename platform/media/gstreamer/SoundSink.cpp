// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/SoundSink.h"

#include <cmath>
#include <utility>

#include "platform/host/Realtime.h"
#include "platform/media/AudioTap.h"
#include "platform/media/gstreamer/GStreamerLibrary.h"
#include "platform/media/gstreamer/GStreamerPipeline.h"

namespace velor::media {
namespace {

constexpr const char* kChain =
    "queue max-size-buffers=0 max-size-bytes=0 max-size-time=500000000 ! audioconvert ! "
    "audio/x-raw,format=F32LE,layout=non-interleaved ! "
    "appsink name=sink sync=true qos=false max-buffers=4";

// The layout's own, after its name; channels without a layout alternate, as pairs do.
std::vector<SoundSide> sidesOf(const GstAudioInfo& info) {
  std::vector<SoundSide> sides;
  for (int channel = 0; channel < info.channels; ++channel) {
    const bool isOdd = channel % 2 != 0;
    // More channels than that have no layout.
    switch (channel < 64 ? info.position[channel] : GST_AUDIO_CHANNEL_POSITION_NONE) {
      case GST_AUDIO_CHANNEL_POSITION_NONE:
      case GST_AUDIO_CHANNEL_POSITION_INVALID:
        sides.push_back(isOdd ? SoundSide::right : SoundSide::left);
        break;
      case GST_AUDIO_CHANNEL_POSITION_FRONT_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_REAR_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER:
      case GST_AUDIO_CHANNEL_POSITION_SIDE_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_FRONT_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_REAR_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_SIDE_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_BOTTOM_FRONT_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_WIDE_LEFT:
      case GST_AUDIO_CHANNEL_POSITION_SURROUND_LEFT:
        sides.push_back(SoundSide::left);
        break;
      case GST_AUDIO_CHANNEL_POSITION_FRONT_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_REAR_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER:
      case GST_AUDIO_CHANNEL_POSITION_SIDE_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_FRONT_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_REAR_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_TOP_SIDE_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_BOTTOM_FRONT_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_WIDE_RIGHT:
      case GST_AUDIO_CHANNEL_POSITION_SURROUND_RIGHT:
        sides.push_back(SoundSide::right);
        break;
      default:
        sides.push_back(SoundSide::both);
    }
  }
  return sides;
}

}  // namespace

SoundSink::SoundSink(PipelineEvents& events) : StreamSink(kChain), mEvents(events) {}

std::uint32_t SoundSink::channels() const {
  GstElement* sink = element();
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

// Sound of many channels often has no layout, and converters refuse to guess one: it gets the
// layout "none".
GstPadProbeReturn SoundSink::completeCaps(GstPad* /*pad*/, GstPadProbeInfo* info,
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

void SoundSink::willLink(GstPad& pad) {
  gst_pad_add_probe(&pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, &SoundSink::completeCaps, nullptr,
                    nullptr);
}

// The output opens while the clip does, not when it has to sound.
void SoundSink::takePreroll(GstSample& sample) {
  GstAudioInfo info;
  if (gst_audio_info_from_caps(&info, gst_sample_get_caps(&sample)) != FALSE) {
    makeRing(info);
  }
}

void SoundSink::makeRing(const GstAudioInfo& info) {
  std::vector<SoundSide> sides = sidesOf(info);
  if (mRing == nullptr || mRing->sides() != sides || mRing->rate() != info.rate) {
    mRing = mEvents.soundBegins(std::move(sides), info.rate);
  }
}

void SoundSink::take(GstSample& sample) {
  GstAudioInfo info;
  GstAudioBuffer mapped;
  GstBuffer* buffer = gst_sample_get_buffer(&sample);
  if (buffer == nullptr || gst_audio_info_from_caps(&info, gst_sample_get_caps(&sample)) == FALSE ||
      gst_audio_buffer_map(&mapped, &info, buffer, GST_MAP_READ) == FALSE) {
    return;
  }
  const auto channels = static_cast<std::uint32_t>(info.channels);
  makeRing(info);
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

}  // namespace velor::media
