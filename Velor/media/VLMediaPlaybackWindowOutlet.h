// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "Velor/clock/VLClockStatus.h"

namespace velor {

/// A media window as its controller knows it. As it stands, it is the one of a run without
/// windows: it shows nothing, and nobody answers its file panel. Queue: main.
class VLMediaPlaybackWindowOutlet {
 public:
  /// Empty when the user has cancelled.
  using FileChosen = std::function<void(const std::filesystem::path& path)>;

  virtual ~VLMediaPlaybackWindowOutlet() = default;

  /// Whether somebody sees the frames of the clip.
  virtual bool wantsVideo() const { return false; }
  /// A window that is not visible is not saved.
  virtual bool isVisible() const { return true; }
  virtual void showWindow() {}
  /// Ends in the controller's `windowWillClose`, as a close by the user does.
  virtual void close() {}

  /// Of the clip, for the window and its field.
  virtual void setTitle(const std::string& /*title*/) {}
  virtual void setMTCIn(const std::string& /*text*/) {}
  /// Rolling while the clip is started from MTC, stopped when that has ended.
  virtual void setMTCInStatus(VLClockStatus /*status*/) {}
  virtual void setDeviation(const std::string& /*text*/) {}

  /// Read the controller's settings again.
  virtual void settingsDidChange() {}
  /// Read the player again: its status, its rate, what it knows of the clip.
  virtual void playerDidChange() {}
  /// The player has a new frame.
  virtual void playerHasFrame() {}

  virtual void beginOpenPanel(const FileChosen& /*chosen*/) {}
  virtual void presentError(const std::string& /*text*/) {}
};

}  // namespace velor
