// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadlessWindow.h"

#include <utility>

#include "Velor/program/VLStandardError.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {

bool VLHeadlessWindow::answerTo(VLAlert::Kind kind) const {
  switch (kind) {
    case VLAlert::Kind::wrongFormat:
      return mAnswers.takesFormat;
    case VLAlert::Kind::mtcLoop:
      return !mAnswers.ignoresLoops;
    case VLAlert::Kind::devicesAreRunning:
      return true;  // who sends a signal to end wants the end
  }
  return false;
}

void VLHeadlessWindow::presentAlert(const VLAlert& alert, VLAlert::Answer answer) {
  const bool isDefault = answerTo(alert.kind);
  const std::string& button = isDefault ? alert.defaultButton : alert.otherButton;
  VELOR_LOG_WARNING("%s %s: %s", alert.title.c_str(), alert.message.c_str(), button.c_str());
  const std::string subject = alert.subject.empty() ? "" : " " + alert.subject;
  mNotice(alert.title + subject + ": " + button);
  VLStandardError::tell(alert.message + ": " + button);
  host::current().mainQueue().async([answer = std::move(answer), isDefault] { answer(isDefault); });
}

void VLHeadlessWindow::presentError(const std::string& text) {
  VELOR_LOG_ERROR("%s", text.c_str());
  VLStandardError::tell(text);
}

void VLHeadlessWindow::replyToApplicationShouldTerminate(bool terminate) {
  if (terminate) {
    host::current().mainQueue().stop();
  }
}

}  // namespace velor
