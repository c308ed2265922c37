// SPDX-License-Identifier: MIT
#pragma once

#include "kvtimecode/SMPTETime.h"

namespace velor {

class VLMediaPlaybackWindowController;

/// The application, as its media windows know it. Queue: main.
class VLMediaPlaybackWindowDelegate {
 public:
  virtual ~VLMediaPlaybackWindowDelegate() = default;

  virtual void play(VLMediaPlaybackWindowController& sender) = 0;
  virtual void stop(VLMediaPlaybackWindowController& sender) = 0;
  /// Moves the clock. `time` is one that the clock sends, so it includes the clock's offset.
  virtual void setCurrentSMPTETime(const SMPTETime& time) = 0;
  /// Something that is saved has changed.
  virtual void mediaPlaybackWindowDidChange(VLMediaPlaybackWindowController& window) = 0;
  /// Drops the controller.
  virtual void mediaPlaybackWindowDidClose(VLMediaPlaybackWindowController& window) = 0;
};

}  // namespace velor
