// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

namespace velor {

class LTCReaderDeviceDelegate;
class VLAppDelegate;
class VLMainWindowOutlet;
class VLTimecodeViewOutlet;

/// The side of a run that its user meets: a window, or a line on a terminal. Queue: main.
class VLFrontEnd {
 public:
  virtual ~VLFrontEnd() = default;

  virtual std::shared_ptr<VLMainWindowOutlet> mainWindow() const = 0;
  virtual std::shared_ptr<VLTimecodeViewOutlet> counters() const = 0;
  /// Null where the windows of devices follow them by themselves.
  virtual std::shared_ptr<LTCReaderDeviceDelegate> readerDelegate() const = 0;

  virtual void willLaunch(const std::shared_ptr<VLAppDelegate>& /*app*/) {}
  virtual void didLaunch() {}

  /// An event in a few words, which standard error or a question has in full.
  virtual void showNotice(const std::string& notice) = 0;
  /// Whether the media windows report on standard error what is wrong with a clip.
  virtual bool reportsClips() const { return false; }
  /// All is set up and may be shown.
  virtual void begin() = 0;
  /// Runs the main loop until it is stopped and the application may end.
  virtual void run(VLAppDelegate& app) = 0;
};

}  // namespace velor
