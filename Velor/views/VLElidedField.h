// SPDX-License-Identifier: MIT
#pragma once

#include <QLineEdit>
#include <QPainter>

namespace velor {

/// A text on one line, to be read and copied. One that does not fit ends in an ellipsis, except
/// while the user selects in it, with the whole as its tooltip. Queue: main.
class VLElidedField final : public QLineEdit {
  Q_OBJECT

 public:
  explicit VLElidedField(QWidget* parent = nullptr) : QLineEdit(parent) {
    setReadOnly(true);
    setFrame(false);
  }

 protected:
  void paintEvent(QPaintEvent* event) override {
    const QRect room = rect().adjusted(kMargin, 0, -kMargin, 0);
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, room.width());
    const QString whole = shown == text() ? QString() : text();
    if (toolTip() != whole) {
      setToolTip(whole);
    }
    if (whole.isEmpty() || hasFocus()) {
      QLineEdit::paintEvent(event);
      return;
    }
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(room, Qt::AlignLeft | Qt::AlignVCenter, shown);
  }

 private:
  static constexpr int kMargin = 2;  // that of the base, at the sides
};

}  // namespace velor
