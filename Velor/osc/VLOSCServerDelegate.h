// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLOSCServer;

/// Does what OSC commands ask for, as its buttons and menus would. Queue: main.
class VLOSCServerDelegate {
 public:
  virtual ~VLOSCServerDelegate() = default;

  virtual void play(VLOSCServer& sender) = 0;
  virtual void stop(VLOSCServer& sender) = 0;
  virtual void gotoPrevMarker() = 0;
  virtual void gotoNextMarker() = 0;
  virtual void addMarker(VLOSCServer& sender) = 0;
  /// Percent off normal speed; any float.
  virtual void setPlayRate(float playRate) = 0;
};

}  // namespace velor
