// SPDX-License-Identifier: MIT
#pragma once

#include <QRadioButton>

namespace velor {

/// A radio button whose ring is seen on any palette, and which Return presses too. Queue: main.
class VLRadioButton final : public QRadioButton {
  Q_OBJECT

 public:
  using QRadioButton::QRadioButton;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
};

}  // namespace velor
