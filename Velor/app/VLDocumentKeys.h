// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace velor {

/// The keys of a document, but for those of the device manager, in the order in which
/// they are written.
struct VLDocumentKeys {
  static constexpr std::string_view kTime = "time";
  static constexpr std::string_view kOffset = "offset";
  static constexpr std::string_view kStopTime = "stoptime";
  static constexpr std::string_view kLoopStart = "loopStart";
  static constexpr std::string_view kLoopEnd = "loopEnd";
  static constexpr std::string_view kFormat = "tc.type";
  static constexpr std::string_view kPrerollTime = "prerollTime";
  static constexpr std::string_view kPreroll = "preroll";
  static constexpr std::string_view kPlayRate = "playbackRate";
  static constexpr std::string_view kPlayMode = "playbackMode";
  static constexpr std::string_view kVersion = "appVersion";
  static constexpr std::string_view kSyncSource = "syncSource";
  static constexpr std::string_view kMarkers = "markers";
  static constexpr std::string_view kSelection = "selectedmarkerIndexes";
  static constexpr std::string_view kExactDrop = "exactDrop";  // written when it is on
  static constexpr std::string_view kMediaWindows = "mediaWindows";
};

}  // namespace velor
