// SPDX-License-Identifier: MIT
#include "Velor/views/VLRadioButton.h"

#include <QKeyEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionButton>

#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr qreal kRing = 1.2;  // its width
constexpr qreal kRadius = 6;
constexpr qreal kDotRadius = 3;

}  // namespace

void VLRadioButton::paintEvent(QPaintEvent* /*event*/) {
  QStyleOptionButton option;
  initStyleOption(&option);
  const QRectF mark = style()->subElementRect(QStyle::SE_RadioButtonIndicator, &option, this);
  const QRect label = style()->subElementRect(QStyle::SE_RadioButtonContents, &option, this);
  const QColor ink = palette().color(QPalette::WindowText);
  QPainter painter(this);
  painter.setPen(ink);
  painter.drawText(label, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextShowMnemonic, text());
  painter.setRenderHint(QPainter::Antialiasing);
  if (hasFocus()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), VLStyle::kRadius,
                            VLStyle::kRadius);
  }
  painter.setPen(QPen(ink, kRing));
  painter.drawEllipse(mark.center(), kRadius, kRadius);
  if (isChecked()) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    painter.drawEllipse(mark.center(), kDotRadius, kDotRadius);
  }
}

void VLRadioButton::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    click();
  } else {
    QRadioButton::keyPressEvent(event);
  }
}

}  // namespace velor
