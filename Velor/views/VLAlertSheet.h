// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <string>

namespace velor {

/// The texts of a sheet: of a question, or, without the other button, of a message.
struct VLSheetText {
  std::string title;
  std::string message;
  std::string defaultButton;
  std::string otherButton;
};

/// A question or a message. Accepted by the default button; Escape is the other one, where
/// there is one. Texts are shown as they are, whatever marks they hold. Queue: main.
class VLAlertSheet final : public QDialog {
  Q_OBJECT

 public:
  VLAlertSheet(const VLSheetText& text, QWidget* parent);
};

}  // namespace velor
