// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velor {

class KVMIDIEndpoint;
class VLAppDelegate;
class VLDevice;
class VLTimecodeDestinationDevice;

/// An item of a menu that is filled when it opens.
struct VLMenuItem {
  std::string title;  ///< empty: a separator
  bool isOn = false;
  std::string keyEquivalent;
  /// Does nothing once the object is gone that the item stands for.
  std::function<void()> action;
};

/// What the menus of changing content hold at the moment, and what their items do.
/// Queue: main.
class VLMenus {
 public:
  using Items = std::vector<VLMenuItem>;
  using ShowDevice = std::function<void(const std::shared_ptr<VLDevice>& device)>;

  /// What is passed outlives it and the items.
  explicit VLMenus(VLAppDelegate& app) : mApp(app) {}

  /// "Intern", which works by its key before the menu was open, and then the sources.
  Items syncSourceMenu() const;
  Items mtcDestinationsMenu() const;
  Items currentDevicesMenu(const ShowDevice& show) const;
  Items clockmenuFormatMenu() const;
  Items playbackModeMenu() const;

  // The two items of the clock's menu that have a state.
  bool isArmed() const;
  bool isPrerollOn() const;

  void changeSyncSourceFromMenu(const std::shared_ptr<KVMIDIEndpoint>& source) const;
  static void toggleDestinationStatefromMenu(VLTimecodeDestinationDevice& destination);
  /// One of the four play modes; others are ignored.
  void changePlaybackMode(std::uint64_t tag) const;
  void changeTimecodeFormatFromMenu(std::uint32_t tag) const;

 private:
  VLAppDelegate& mApp;
};

}  // namespace velor
