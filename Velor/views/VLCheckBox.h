// SPDX-License-Identifier: MIT
#pragma once

#include <QCheckBox>
#include <QKeyEvent>

namespace velor {

/// A check box that Return turns, since Space belongs to the transport. Queue: main.
class VLCheckBox final : public QCheckBox {
  Q_OBJECT

 public:
  explicit VLCheckBox(QWidget* parent = nullptr) : QCheckBox(parent) {}

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
      QCheckBox::keyPressEvent(event);
    } else if (!event->isAutoRepeat()) {
      click();
    }
  }
};

}  // namespace velor
