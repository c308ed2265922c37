// SPDX-License-Identifier: MIT
#pragma once

#include <gst/app/gstappsink.h>

#include <atomic>

namespace velor::media {

/// One stream of a clip, from where it is decoded to the sink that hands its samples over.
class StreamSink {
 public:
  /// The chain's elements, the sink among them named "sink".
  explicit StreamSink(const char* chain) : mChain(chain) {}
  StreamSink(const StreamSink&) = delete;
  StreamSink& operator=(const StreamSink&) = delete;

  /// Adds the chain to the pipeline, behind the pad of the decoder. A failure is an error on
  /// the pipeline's bus. Thread: the one of GStreamer's that found the stream.
  void link(GstElement& pipeline, GstPad& pad);

  /// Null until the stream is found. Any thread.
  GstElement* element() const { return mElement.load(); }
  /// Whether anything has been decoded. Any thread.
  bool hasSample() const { return mHasSample.load(); }

 protected:
  ~StreamSink() = default;

  // Threads: GStreamer's, one at a time.
  virtual void willLink(GstPad& /*pad*/) {}
  virtual void take(GstSample& sample) = 0;
  /// The first sample of a pipeline that stands.
  virtual void takePreroll(GstSample& sample) = 0;

 private:
  static GstFlowReturn sampleCame(GstAppSink* sink, gpointer self);
  static GstFlowReturn prerollCame(GstAppSink* sink, gpointer self);

  const char* const mChain;
  std::atomic<GstElement*> mElement{nullptr};
  std::atomic<bool> mHasSample{false};
};

}  // namespace velor::media
