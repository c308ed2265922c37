// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/StreamSink.h"

#include "platform/media/gstreamer/GStreamerLibrary.h"

namespace velor::media {

void StreamSink::link(GstElement& pipeline, GstPad& pad) {
  GError* error = nullptr;
  GstElement* chain = gst_parse_bin_from_description(mChain, TRUE, &error);
  if (error != nullptr) {
    GST_ELEMENT_ERROR(&pipeline, CORE, MISSING_PLUGIN, ("%s", error->message), (nullptr));
    g_clear_error(&error);
    if (chain != nullptr) {
      gst_object_unref(gst_object_ref_sink(chain));
    }
    return;
  }
  const ElementRef sink(gst_bin_get_by_name(GST_BIN(chain), "sink"));
  GstAppSinkCallbacks callbacks{};
  callbacks.new_sample = &StreamSink::sampleCame;
  callbacks.new_preroll = &StreamSink::prerollCame;
  gst_app_sink_set_callbacks(GST_APP_SINK(sink.get()), &callbacks, this, nullptr);
  gst_bin_add(GST_BIN(&pipeline), chain);
  mElement.store(sink.get());
  const PadRef in(gst_element_get_static_pad(chain, "sink"));
  willLink(pad);
  gst_pad_link(&pad, in.get());
  gst_element_sync_state_with_parent(chain);
}

GstFlowReturn StreamSink::sampleCame(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_sample(sink));
  if (sample == nullptr) {
    return GST_FLOW_EOS;
  }
  static_cast<StreamSink*>(self)->take(*sample);
  return GST_FLOW_OK;
}

GstFlowReturn StreamSink::prerollCame(GstAppSink* sink, gpointer self) {
  const SampleRef sample(gst_app_sink_pull_preroll(sink));
  if (sample != nullptr) {
    static_cast<StreamSink*>(self)->mHasSample = true;
    static_cast<StreamSink*>(self)->takePreroll(*sample);
  }
  return GST_FLOW_OK;
}

}  // namespace velor::media
