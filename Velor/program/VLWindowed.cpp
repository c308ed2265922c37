// SPDX-License-Identifier: MIT
#include "Velor/program/VLWindowed.h"

#include <QLocale>
#include <memory>
#include <string>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/devices/LTCReaderDeviceDelegate.h"
#include "Velor/program/VLAlertAnswers.h"
#include "Velor/program/VLSession.h"
#include "Velor/views/VLMainWindow.h"
#include "Velor/views/VLTimecodeView.h"
#include "Velor/views/VLTranslation.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/qt/EventLoop.h"

namespace velor {
namespace {

class WindowedFrontEnd final : public VLFrontEnd {
 public:
  WindowedFrontEnd(VLApplication& application, const VLOptions& options)
      : mApplication(application), mWindow(std::make_shared<VLMainWindow>()) {
    mApplication.setPresentError([this](const std::string& text) { mWindow->presentError(text); });
    mWindow->setAnswerTo([answers = VLAlertAnswers(options)](const VLAlert& alert) {
      const auto answer = answers.answerTo(alert);
      if (answer) {
        VELOR_LOG_WARNING("%s", answer->text.c_str());
      }
      return answer ? std::optional(answer->isDefault) : std::nullopt;
    });
  }
  ~WindowedFrontEnd() override { mApplication.setPresentError(nullptr); }

  std::shared_ptr<VLMainWindowOutlet> mainWindow() const override { return mWindow; }
  std::shared_ptr<VLTimecodeViewOutlet> counters() const override {
    return {mWindow, &mWindow->timecodeView()};
  }
  std::shared_ptr<LTCReaderDeviceDelegate> readerDelegate() const override { return nullptr; }
  void willLaunch(const std::shared_ptr<VLAppDelegate>& app) override {
    mWindow->setController(app);
  }
  void didLaunch() override { mWindow->didLaunch(); }
  // The log has it too, and the status row shows the last warning of the log.
  void showNotice(const std::string& /*notice*/) override {}
  void begin() override {
    mWindow->show();
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
  }
  // The window has asked before it ends the loop; a signal ends it without a question. Windows
  // save their places when they are hidden, before the settings are written.
  void run(VLAppDelegate& /*app*/) override {
    qt::EventLoop(host::current().mainQueue()).run();
    for (QWidget* each : QApplication::topLevelWidgets()) {
      each->hide();
    }
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
  }

 private:
  VLApplication& mApplication;
  const std::shared_ptr<VLMainWindow> mWindow;
};

}  // namespace

int VLWindowedRun(VLApplication& application, const VLOptions& options) {
  VLTranslation::install(application, QLocale::system());
  return VLSessionRun(options, {}, [&](VLWantedDevices& /*devices*/) {
    return std::make_unique<WindowedFrontEnd>(application, options);
  });
}

}  // namespace velor
