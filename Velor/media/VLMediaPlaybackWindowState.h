// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "Velor/media/VLMonoSumTap.h"
#include "kvtimecode/KVSMPTETime.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// A media window in a document.
class VLMediaPlaybackWindowState final : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLMediaPlaybackWindow";

  /// In archives; they must never change.
  static constexpr std::string_view kBookmarkKey = "media.url.bookmark.velor-mediaplayer";
  static constexpr std::string_view kStartTimeKey = "start.time.velor-mediaplayer";
  static constexpr std::string_view kAudioSumModeKey = "audiosummingmode";
  static constexpr std::string_view kControlMasterClockKey = "controlmasterclock.velor-mediaplayer";
  static constexpr std::string_view kOnlineKey = "online";
  static constexpr std::string_view kVolumeKey = "volume";
  static constexpr std::string_view kAdjustSpeedKey = "adjustSpeed";

  static std::shared_ptr<VLMediaPlaybackWindowState> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  std::optional<std::vector<std::uint8_t>> bookmark;  ///< VLMediaBookmark; none without a clip
  std::shared_ptr<KVSMPTETime> startTime;             ///< may be null
  std::int32_t audioSumMode = VLMonoSumTap::kNoSumming;
  bool controlMasterClock = false;
  bool online = true;
  float volume = 1;
  bool adjustSpeed = true;
};

}  // namespace velor
