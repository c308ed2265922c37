// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "Velor/program/VLFrontEnd.h"
#include "Velor/program/VLHeadlessView.h"
#include "Velor/program/VLHeadlessWindow.h"
#include "Velor/program/VLOptions.h"

namespace velor {

/// A run without a main window: the status line, and answers in place of the user. Queue: main.
class VLHeadlessFrontEnd : public VLFrontEnd {
 public:
  /// `makeMediaWindow`: none for clips that are heard and not seen.
  VLHeadlessFrontEnd(const VLOptions& options, VLWantedDevices& devices,
                     VLHeadlessWindow::MakeMediaWindow makeMediaWindow = nullptr);

  std::shared_ptr<VLMainWindowOutlet> mainWindow() const override { return mWindow; }
  std::shared_ptr<VLTimecodeViewOutlet> counters() const override { return mView; }
  std::shared_ptr<LTCReaderDeviceDelegate> readerDelegate() const override { return mView; }
  void showNotice(const std::string& notice) override { mView->showNotice(notice); }
  bool reportsClips() const override { return true; }
  void begin() override { mView->begin(); }
  void run(VLAppDelegate& app) override;

 private:
  /// Until the main queue is stopped.
  virtual void runLoop();

  const std::shared_ptr<VLHeadlessView> mView;
  const std::shared_ptr<VLHeadlessWindow> mWindow;
};

}  // namespace velor
