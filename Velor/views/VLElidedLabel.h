// SPDX-License-Identifier: MIT
#pragma once

#include <QLabel>
#include <QPainter>

namespace velor {

/// A plain text on one line. One that does not fit ends in an ellipsis, with the whole as its
/// tooltip. Queue: main.
class VLElidedLabel final : public QLabel {
  Q_OBJECT

 public:
  explicit VLElidedLabel(QWidget* parent = nullptr) : QLabel(parent) {
    setTextFormat(Qt::PlainText);
  }

  QString stringValue() const { return text(); }

  QSize sizeHint() const override {
    return {fontMetrics().horizontalAdvance(text()) + 1, fontMetrics().height()};
  }
  QSize minimumSizeHint() const override { return {0, fontMetrics().height()}; }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, width());
    const QString whole = shown == text() ? QString() : text();
    if (toolTip() != whole) {
      setToolTip(whole);
    }
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(rect(), static_cast<int>(alignment()), shown);
  }
};

}  // namespace velor
