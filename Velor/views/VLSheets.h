// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QWidget>
#include <deque>
#include <functional>
#include <string>

#include "Velor/views/VLAlertSheet.h"
#include "Velor/views/VLPerform.h"

class QDialog;

namespace velor {

/// The sheets of a window, one at a time, in the order in which they began. None runs a loop
/// of its own: jobs of the main queue would run inside one another. Queue: main.
class VLSheets {
 public:
  using Finished = std::function<void(bool isAccepted)>;

  /// The window outlives it.
  explicit VLSheets(QWidget& window);
  ~VLSheets();
  VLSheets(const VLSheets&) = delete;
  VLSheets& operator=(const VLSheets&) = delete;

  /// Does what the user has asked for; a failure becomes a line of the log and a sheet.
  void perform(const std::function<void()>& action);
  VLPerform performer() {
    return [this](const std::function<void()>& action) { perform(action); };
  }
  void presentError(const std::string& text);

  /// The dialog is a child of the window, and deleted at its end.
  void begin(QDialog& dialog, Finished finished);
  void ask(const VLSheetText& text, Finished finished);

  /// The one that is open; null when none is.
  QDialog* current() const { return mCurrent; }
  /// Brings the one that is open to the front. False when none is.
  bool raise();

 private:
  struct Sheet {
    QPointer<QDialog> dialog;
    Finished finished;
  };
  void openNext();
  void didFinish(bool isAccepted);

  QWidget& mWindow;
  std::deque<Sheet> mSheets;  // the first is the open one
  QPointer<QDialog> mCurrent;
};

}  // namespace velor
