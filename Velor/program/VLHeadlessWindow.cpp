// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadlessWindow.h"

#include <utility>

#include "Velor/program/VLHeadlessMediaWindow.h"
#include "Velor/program/VLStandardError.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {

VLHeadlessWindow::Decision VLHeadlessWindow::decide(const VLAlert& alert) const {
  if (const auto answer = mAnswers.answerTo(alert)) {
    return {answer->isDefault, answer->text, ""};
  }
  switch (alert.kind) {
    case VLAlert::Kind::wrongFormat:
      return {false, "MTC at " + alert.subject + ": disarmed the clock",
              "; --auto-format changes its format instead"};
    case VLAlert::Kind::mtcLoop:
      return {true, "MTC loop " + alert.subject + ": switched the destination off",
              "; --ignore-loops keeps it on"};
    case VLAlert::Kind::featureNotAvailable:
      return {true, alert.message, ""};
    case VLAlert::Kind::devicesAreRunning:
      break;  // a signal to end is meant
  }
  return {true, "stopping; timecode was running", ""};
}

void VLHeadlessWindow::presentAlert(const VLAlert& alert, VLAlert::Answer answer) {
  const Decision decision = decide(alert);
  VELOR_LOG_WARNING("%s%s", decision.text.c_str(), decision.advice);
  mNotice(decision.text);
  VLStandardError::tell(decision.text + decision.advice);
  host::current().mainQueue().async(
      [answer = std::move(answer), isDefault = decision.isDefault] { answer(isDefault); });
}

void VLHeadlessWindow::presentError(const std::string& text) {
  VELOR_LOG_ERROR("%s", text.c_str());
  VLStandardError::tell(text);
}

std::shared_ptr<VLMediaPlaybackWindowOutlet> VLHeadlessWindow::makeMediaPlaybackWindow(
    const std::shared_ptr<VLMediaPlaybackWindowController>& controller) {
  return mMakeMediaWindow ? mMakeMediaWindow(controller)
                          : std::make_shared<VLHeadlessMediaWindow>(controller);
}

void VLHeadlessWindow::replyToApplicationShouldTerminate(bool terminate) {
  if (terminate) {
    host::current().mainQueue().stop();
  }
}

}  // namespace velor
