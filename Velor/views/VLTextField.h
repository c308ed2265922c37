// SPDX-License-Identifier: MIT
#pragma once

#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <utility>

#include "Velor/views/VLStyle.h"

namespace velor {

/// A field for a value: what is typed counts with Return or when the field is left, and
/// Escape gives back what was. Queue: main.
class VLTextField final : public QLineEdit {
  Q_OBJECT

 public:
  explicit VLTextField(QWidget* parent = nullptr) : QLineEdit(parent) {
    connect(this, &QLineEdit::textEdited, this, [this] { mIsTyped = true; });
    connect(this, &QLineEdit::editingFinished, this, [this] {
      if (std::exchange(mIsTyped, false)) {
        emit textCommitted(text());
      }
    });
  }

  /// The current value. What is being typed stays.
  void showValue(const QString& value) {
    mValue = value;
    if (!mIsTyped && text() != value) {
      setText(value);
    }
  }

 signals:
  /// The receiver shows the value that results, whether it has taken the text or not.
  void textCommitted(const QString& text);

 protected:
  // The outline of the toolkit's style is hard to see in the dark.
  void paintEvent(QPaintEvent* event) override {
    QLineEdit::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (hasFocus()) {
      VLStyle::drawFocus(painter, QRectF(rect()).adjusted(-1, -1, 1, 1), palette());
    } else {
      painter.setPen(VLStyle::line(palette()));
      painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kCorner, kCorner);
    }
  }
  void keyPressEvent(QKeyEvent* event) override {
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (event->key() == Qt::Key_Escape && mIsTyped) {
      mIsTyped = false;
      setText(mValue);
    } else {
      QLineEdit::keyPressEvent(event);
    }
    if (isReturn || event->key() == Qt::Key_Escape) {
      selectAll();
    }
  }

 private:
  static constexpr qreal kCorner = 2;

  QString mValue;
  bool mIsTyped = false;  // a validator that corrects the text takes back isModified
};

}  // namespace velor
