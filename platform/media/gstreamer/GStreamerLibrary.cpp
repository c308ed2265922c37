// SPDX-License-Identifier: MIT
#include "platform/media/gstreamer/GStreamerLibrary.h"

#include <algorithm>
#include <array>

namespace velor::media {
namespace {

// The elements that a player builds its pipeline from, and those that read the usual files;
// each with the package that installs it. Decoders are not in the list: systems differ in
// them, and a clip that lacks one names it.
struct Needed {
  const char* element;
  const char* package;
};
constexpr std::array kNeeded{
    Needed{"filesrc", "libgstreamer1.0-0"},
    Needed{"queue", "libgstreamer1.0-0"},
    Needed{"uridecodebin", "gstreamer1.0-plugins-base"},
    Needed{"videoconvert", "gstreamer1.0-plugins-base"},
    Needed{"audioconvert", "gstreamer1.0-plugins-base"},
    Needed{"appsink", "gstreamer1.0-plugins-base"},
    Needed{"videoflip", "gstreamer1.0-plugins-good"},
    Needed{"qtdemux", "gstreamer1.0-plugins-good"},
    Needed{"wavparse", "gstreamer1.0-plugins-good"},
};

}  // namespace

std::string GStreamerLibrary::start() {
  static const std::string kProblem = [] {
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error) != FALSE) {
      return std::string();
    }
    std::string text = error != nullptr ? error->message : "GStreamer does not start";
    g_clear_error(&error);
    return text;
  }();
  return kProblem;
}

std::vector<std::string> GStreamerLibrary::missingPackages() {
  std::vector<std::string> missing;
  for (const Needed& needed : kNeeded) {
    GstElementFactory* factory = gst_element_factory_find(needed.element);
    if (factory != nullptr) {
      gst_object_unref(factory);
    } else if (std::find(missing.begin(), missing.end(), needed.package) == missing.end()) {
      missing.emplace_back(needed.package);
    }
  }
  return missing;
}

}  // namespace velor::media
