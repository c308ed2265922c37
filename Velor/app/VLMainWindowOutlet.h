// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "Velor/app/VLAlert.h"
#include "Velor/app/VLBigTimecodeOutlet.h"
#include "Velor/media/VLMediaPlaybackWindowController.h"

namespace velor {

class VLDevice;

/// An entry of a menu, a pop-up button or a row of segments.
struct VLChoice {
  std::string_view title;
  std::uint64_t tag;
};

/// The main window with its menus and sheets, as the controller knows it. What shows
/// something does nothing by itself; what asks the user must be answered. Queue: main.
class VLMainWindowOutlet {
 public:
  /// A template image; the file's name without its extension.
  struct Image {
    enum class Tint { none, black, green, red, blue };
    std::string_view name;
    Tint tint = Tint::none;
    bool operator==(const Image&) const = default;
  };
  /// Called with the tag of the entry that the user picks.
  using Chosen = std::function<void(std::uint64_t tag)>;
  /// Empty when the user has cancelled.
  using FileChosen = std::function<void(const std::filesystem::path& path)>;

  virtual ~VLMainWindowOutlet() = default;

  virtual void setStartImage(const Image& /*image*/) {}
  virtual void setStopImage(const Image& /*image*/) {}
  virtual void setArmImage(const Image& /*image*/, bool /*on*/) {}

  virtual void setTogglePlayKey(std::string_view /*keyEquivalent*/) {}
  virtual void setPlayModes(std::span<const VLChoice> /*modes*/, const Chosen& /*chosen*/) {}
  virtual void setSelectedPlayMode(std::uint64_t /*playMode*/) {}
  virtual void setFormats(std::span<const VLChoice> /*formats*/, const Chosen& /*chosen*/) {}
  /// One that is not offered selects none.
  virtual void setSelectedFormat(std::uint32_t /*format*/) {}

  virtual void rearrangeDestinations() {}
  virtual void setNeedsDisplay() {}
  virtual void showWindowForDevice(const std::shared_ptr<VLDevice>& /*device*/) {}
  /// Makes the big window; returns null in a run without windows.
  virtual std::shared_ptr<VLBigTimecodeOutlet> makeBigTimecodeWindow() { return nullptr; }
  /// Makes the window of the controller's clip; after null the clip plays without one.
  virtual std::shared_ptr<VLMediaPlaybackWindowOutlet> makeMediaPlaybackWindow(
      const std::shared_ptr<VLMediaPlaybackWindowController>& /*controller*/) {
    return nullptr;
  }
  /// Above the other windows, with the keyboard.
  virtual void makeKeyAndOrderFront() {}
  /// Made on first use.
  virtual void showOSCSetup() {}
  virtual void beginPlayRateSheet(double /*percent*/) {}
  virtual void endPlayRateSheet() {}

  /// Of the event that is being handled.
  virtual bool isControlKeyHeld() const { return false; }

  /// A sheet; the answer comes later, once.
  virtual void presentAlert(const VLAlert& alert, VLAlert::Answer answer) = 0;
  virtual void presentError(const std::string& text) = 0;
  virtual void beginSavePanel(std::string_view fileType, FileChosen chosen) = 0;
  virtual void beginOpenPanel(std::string_view fileType, FileChosen chosen) = 0;
  /// Ends the application, or lets it go on, after a reply that was put off.
  virtual void replyToApplicationShouldTerminate(bool terminate) = 0;
};

}  // namespace velor
