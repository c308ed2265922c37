// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLOSCServer;

/// Performs OSC commands like its own buttons and menus. Queue: main.
class VLOSCServerDelegate {
 public:
  virtual ~VLOSCServerDelegate() = default;

  virtual void play(VLOSCServer& sender) = 0;
  virtual void stop(VLOSCServer& sender) = 0;
  virtual void gotoPrevMarker() = 0;
  virtual void gotoNextMarker() = 0;
  virtual void addMarker(VLOSCServer& sender) = 0;
  /// Deviation from normal speed in percent; any float.
  virtual void setPlayRate(float playRate) = 0;
};

}  // namespace velor
