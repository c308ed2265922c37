// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadlessFrontEnd.h"

#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/program/VLAlertAnswers.h"
#include "platform/host/Host.h"
#include "platform/host/MainLoop.h"

namespace velor {
namespace {

// Whether the clock does anything beside the reader.
bool usesClock(const VLOptions& options) {
  return !options.ltcIn || options.play || options.arm || options.file || !options.mtcOut.empty() ||
         !options.ltcOut.empty() || options.osc.isWanted();
}

}  // namespace

VLHeadlessFrontEnd::VLHeadlessFrontEnd(const VLOptions& options, VLWantedDevices& devices,
                                       VLHeadlessWindow::MakeMediaWindow makeMediaWindow)
    : mView(std::make_shared<VLHeadlessView>(devices, usesClock(options))),
      mWindow(std::make_shared<VLHeadlessWindow>(
          VLAlertAnswers(options), [this](const std::string& notice) { showNotice(notice); },
          std::move(makeMediaWindow))) {}

void VLHeadlessFrontEnd::run(VLAppDelegate& app) {
  runLoop();
  if (app.applicationShouldTerminate() == VLAppDelegate::TerminateReply::later) {
    runLoop();  // until the reply
  }
}

void VLHeadlessFrontEnd::runLoop() {
  host::current().mainQueue().run();
}

}  // namespace velor
