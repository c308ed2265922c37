// SPDX-License-Identifier: MIT
#include "Velor/program/VLMediaFullscreen.h"

#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "Velor/program/VLHeadlessFrontEnd.h"
#include "Velor/program/VLHeadlessMediaWindow.h"
#include "Velor/program/VLSession.h"
#include "Velor/program/VLStandardError.h"
#include "Velor/views/VLMediaScreen.h"
#include "Velor/views/VLVideoView.h"
#include "platform/host/Host.h"
#include "platform/power/dbus/DBusSleepInhibitor.h"
#include "platform/qt/EventLoop.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;

// Its view on the screen. A clip that fails leaves it black; the reason goes to standard error.
class ScreenMediaWindow final : public VLHeadlessMediaWindow {
 public:
  ScreenMediaWindow(const std::shared_ptr<VLMediaPlaybackWindowController>& controller,
                    std::shared_ptr<VLMediaScreen> screen)
      : VLHeadlessMediaWindow(controller), mScreen(std::move(screen)), mView(mScreen->addView()) {}

  bool wantsVideo() const override { return true; }
  void playerDidChange() override {
    const auto owner = controller();
    const bool isReady = owner != nullptr && owner->isReady();
    if (!isReady) {
      mView.setFrame(nullptr);
    }
    mScreen->setRunning(mView, isReady && owner->mediaPlayer()->player().rate() != 0);
  }
  void playerHasFrame() override {
    const auto owner = controller();
    if (owner == nullptr || owner->mediaPlayer() == nullptr) {
      return;
    }
    if (auto frame = owner->mediaPlayer()->player().takeFrame()) {
      mView.setFrame(std::move(frame));
    }
  }

 private:
  const std::shared_ptr<VLMediaScreen> mScreen;
  VLVideoView& mView;
};

class FullscreenFrontEnd final : public VLHeadlessFrontEnd {
 public:
  FullscreenFrontEnd(VLApplication& application, const VLOptions& options, VLWantedDevices& devices,
                     const std::shared_ptr<VLMediaScreen>& screen)
      : VLHeadlessFrontEnd(options, devices,
                           [screen](const auto& controller) {
                             return std::make_shared<ScreenMediaWindow>(controller, screen);
                           }),
        mApplication(application) {
    mApplication.setPresentError(&VLStandardError::tell);
    mInhibitor.inhibit("Video is shown on a screen");
  }
  ~FullscreenFrontEnd() override { mApplication.setPresentError(nullptr); }

 private:
  void runLoop() override { qt::EventLoop(host::current().mainQueue()).run(); }

  VLApplication& mApplication;
  // Beside that of the clock, which holds it only while timecode runs.
  power::DBusSleepInhibitor mInhibitor;
};

}  // namespace

int VLMediaFullscreenRun(VLApplication& application, const VLOptions& options) {
  const std::string& name = *options.mediaFullscreen;
  QScreen* const on = VLMediaScreen::screenOf(QString::fromStdString(name));
  if (on == nullptr) {
    VLStandardError::tell("--media-fullscreen: no screen '" + name + "'; there are " +
                          VLMediaScreen::screens().toStdString());
    return kUsageStatus;
  }
  const auto screen =
      std::make_shared<VLMediaScreen>(*on, [] { host::current().mainQueue().stop(); });
  return VLSessionRun(options, {}, [&](VLWantedDevices& devices) {
    return std::make_unique<FullscreenFrontEnd>(application, options, devices, screen);
  });
}

}  // namespace velor
