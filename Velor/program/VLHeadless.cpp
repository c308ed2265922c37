// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadless.h"

#include "Velor/app/VLAppDelegate.h"
#include "Velor/program/VLHeadlessView.h"
#include "Velor/program/VLHeadlessWindow.h"
#include "platform/host/Host.h"
#include "platform/host/MainLoop.h"

namespace velor {
namespace {

// Whether the clock does anything beside the reader.
bool usesClock(const VLOptions& options) {
  return !options.ltcIn || options.play || options.arm || options.file || !options.mtcOut.empty() ||
         !options.ltcOut.empty() || options.osc.isWanted();
}

class HeadlessFrontEnd final : public VLFrontEnd {
 public:
  HeadlessFrontEnd(const VLOptions& options, VLWantedDevices& devices)
      : mView(std::make_shared<VLHeadlessView>(devices, usesClock(options))),
        mWindow(std::make_shared<VLHeadlessWindow>(
            VLAlertAnswers(options), [this](const std::string& notice) { showNotice(notice); })) {}

  std::shared_ptr<VLMainWindowOutlet> mainWindow() const override { return mWindow; }
  std::shared_ptr<VLTimecodeViewOutlet> counters() const override { return mView; }
  std::shared_ptr<LTCReaderDeviceDelegate> readerDelegate() const override { return mView; }
  void showNotice(const std::string& notice) override { mView->showNotice(notice); }
  void begin() override { mView->begin(); }
  void run(VLAppDelegate& app) override {
    host::MainLoop& loop = host::current().mainQueue();
    loop.run();
    if (app.applicationShouldTerminate() == VLAppDelegate::TerminateReply::later) {
      loop.run();  // until the reply
    }
  }

 private:
  const std::shared_ptr<VLHeadlessView> mView;
  const std::shared_ptr<VLHeadlessWindow> mWindow;
};

}  // namespace

int VLHeadlessRun(const VLOptions& options, const VLWorld& world) {
  return VLSessionRun(options, world, [&options](VLWantedDevices& devices) {
    return std::make_unique<HeadlessFrontEnd>(options, devices);
  });
}

}  // namespace velor
