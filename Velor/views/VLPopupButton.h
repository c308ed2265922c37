// SPDX-License-Identifier: MIT
#pragma once

#include <QComboBox>
#include <QKeyEvent>

namespace velor {

/// A pop-up that Return opens, since Space belongs to the transport. Queue: main.
class VLPopupButton final : public QComboBox {
  Q_OBJECT

 public:
  explicit VLPopupButton(QWidget* parent = nullptr) : QComboBox(parent) {}

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
      showPopup();
    } else {
      QComboBox::keyPressEvent(event);
    }
  }
};

}  // namespace velor
