// SPDX-License-Identifier: MIT
#pragma once

#include <QApplication>
#include <functional>
#include <string>

namespace velor {

/// The application object of the windows. An exception of an action does not end the program,
/// and what Qt reports goes to the log. Queue: main.
class VLApplication final : public QApplication {
 public:
  /// Returns the exit status of a process that can open no display.
  using NoDisplay = int (*)();

  /// Whether the environment names a display. It may be one that cannot be opened.
  static bool isDisplayNamed();

  /// Does not return when no display can be opened: the process ends with the status of
  /// `noDisplay`.
  explicit VLApplication(NoDisplay noDisplay);
  ~VLApplication() override;

  /// Gets the text of each exception.
  void setPresentError(std::function<void(const std::string& text)> presentError);

  bool notify(QObject* receiver, QEvent* event) override;

 private:
  std::function<void(const std::string& text)> mPresentError;
};

}  // namespace velor
