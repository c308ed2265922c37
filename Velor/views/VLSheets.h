// SPDX-License-Identifier: MIT
#pragma once

#include <QPointer>
#include <QWidget>
#include <deque>
#include <functional>
#include <memory>

#include "Velor/views/VLAlertSheet.h"
#include "Velor/views/VLPerform.h"

class QDialog;

namespace velor {

/// The sheets of a window, one at a time, in the order in which they began. None runs a loop
/// of its own: jobs of the main queue would run inside one another. Queue: main.
class VLSheets {
 public:
  using Finished = std::function<void(bool isAccepted)>;

  /// The window outlives it; `perform` guards what the answers do.
  VLSheets(QWidget& window, VLPerform perform);
  ~VLSheets();
  VLSheets(const VLSheets&) = delete;
  VLSheets& operator=(const VLSheets&) = delete;

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
  const VLPerform mPerform;
  std::deque<Sheet> mSheets;  // the first is the open one
  QPointer<QDialog> mCurrent;
};

}  // namespace velor
