// SPDX-License-Identifier: MIT
#include "Velor/views/VLSheets.h"

#include <QDialog>
#include <exception>
#include <utility>

#include "platform/host/Log.h"

namespace velor {

VLSheets::VLSheets(QWidget& window) : mWindow(window) {}

VLSheets::~VLSheets() {
  for (const Sheet& sheet : mSheets) {
    if (sheet.dialog) {
      sheet.dialog->disconnect();
    }
  }
}

void VLSheets::perform(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& failure) {
    VELOR_LOG_ERROR("%s", failure.what());
    presentError(failure.what());
  }
}

void VLSheets::presentError(const std::string& text) {
  ask({QObject::tr("Error").toStdString(), text, QObject::tr("OK").toStdString(), ""}, nullptr);
}

void VLSheets::ask(const VLSheetText& text, Finished finished) {
  begin(*new VLAlertSheet(text, &mWindow), std::move(finished));
}

void VLSheets::begin(QDialog& dialog, Finished finished) {
  mSheets.push_back({&dialog, std::move(finished)});
  if (mCurrent == nullptr) {
    openNext();
  }
}

void VLSheets::openNext() {
  while (!mSheets.empty() && mSheets.front().dialog == nullptr) {
    mSheets.pop_front();
  }
  if (mSheets.empty()) {
    return;
  }
  mCurrent = mSheets.front().dialog;
  QObject::connect(mCurrent, &QDialog::finished, mCurrent,
                   [this](int result) { didFinish(result == QDialog::Accepted); });
  mCurrent->open();
}

void VLSheets::didFinish(bool isAccepted) {
  Sheet sheet = std::move(mSheets.front());
  mSheets.pop_front();
  mCurrent = nullptr;
  sheet.dialog->deleteLater();
  if (sheet.finished) {
    perform([&] { sheet.finished(isAccepted); });
  }
  // The answer may have begun one.
  if (mCurrent == nullptr) {
    openNext();
  }
}

bool VLSheets::raise() {
  if (mCurrent == nullptr) {
    return false;
  }
  mCurrent->raise();
  mCurrent->activateWindow();
  return true;
}

}  // namespace velor
