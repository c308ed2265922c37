// SPDX-License-Identifier: MIT
#pragma once

#include <gst/gst.h>

#include <memory>
#include <string>
#include <vector>

namespace velor::media {

template <auto kFree>
struct FreedBy {
  template <class T>
  void operator()(T* object) const noexcept {
    kFree(object);
  }
};
using ElementRef = std::unique_ptr<GstElement, FreedBy<&gst_object_unref>>;
using PadRef = std::unique_ptr<GstPad, FreedBy<&gst_object_unref>>;
using BusRef = std::unique_ptr<GstBus, FreedBy<&gst_object_unref>>;
using ClockRef = std::unique_ptr<GstClock, FreedBy<&gst_object_unref>>;
using SampleRef = std::unique_ptr<GstSample, FreedBy<&gst_sample_unref>>;
using CapsRef = std::unique_ptr<GstCaps, FreedBy<&gst_caps_unref>>;
using GText = std::unique_ptr<char, FreedBy<&g_free>>;

/// GStreamer in this process.
class GStreamerLibrary {
 public:
  /// Starts it at the first call, which takes tenths of a second while it looks for its
  /// plug-ins; empty, or why it does not start. Any thread.
  static std::string start();

  /// The system's packages without which clips cannot be played; it has to be started.
  static std::vector<std::string> missingPackages();
};

}  // namespace velor::media
