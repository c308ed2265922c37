// SPDX-License-Identifier: MIT
#pragma once

#include <gst/audio/audio.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/media/gstreamer/SoundRing.h"
#include "platform/media/gstreamer/StreamSink.h"

namespace velor::media {

class PipelineEvents;

/// Writes a clip's sound into the ring from which it is played, by its place in the clip.
class SoundSink final : public StreamSink {
 public:
  explicit SoundSink(PipelineEvents& events);

  /// 0 without sound. Queue: the pipeline's.
  std::uint32_t channels() const;

 private:
  static GstPadProbeReturn completeCaps(GstPad* pad, GstPadProbeInfo* info, gpointer self);
  void willLink(GstPad& pad) override;
  void take(GstSample& sample) override;
  void takePreroll(GstSample& sample) override;
  void makeRing(const GstAudioInfo& info);

  PipelineEvents& mEvents;
  std::shared_ptr<SoundRing> mRing;
  std::vector<std::vector<float>> mBlock;
};

}  // namespace velor::media
