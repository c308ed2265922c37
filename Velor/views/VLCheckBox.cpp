// SPDX-License-Identifier: MIT
#include "Velor/views/VLCheckBox.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPolygonF>
#include <QStyleOptionButton>

#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr qreal kCorner = 3;

}  // namespace

void VLCheckBox::paintEvent(QPaintEvent* /*event*/) {
  QStyleOptionButton option;
  initStyleOption(&option);
  const QRectF box = QRectF(style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, this))
                         .adjusted(0.5, 0.5, -0.5, -0.5);
  const QRect contents = style()->subElementRect(QStyle::SE_CheckBoxContents, &option, this);
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QColor on = palette().color(QPalette::Highlight);
  painter.setPen(isChecked() ? on : VLStyle::secondaryText(palette()));
  painter.setBrush(isChecked() ? on : palette().color(QPalette::Base));
  painter.drawRoundedRect(box, kCorner, kCorner);
  if (isChecked()) {
    const auto at = [&box](qreal x, qreal y) {
      return box.topLeft() + QPointF(x * box.width(), y * box.height());
    };
    painter.setPen(QPen(palette().color(QPalette::HighlightedText), 2, Qt::SolidLine, Qt::RoundCap,
                        Qt::RoundJoin));
    painter.drawPolyline(QPolygonF{at(0.25, 0.52), at(0.43, 0.7), at(0.76, 0.3)});
  }
  if (hasFocus()) {
    const int width = fontMetrics().horizontalAdvance(text()) + 2 * VLStyle::kNear;
    VLStyle::drawFocus(
        painter, QRectF(contents.x() - VLStyle::kNear, contents.y(), width, contents.height()),
        palette());
  }
  painter.setPen(palette().color(QPalette::WindowText));
  painter.drawText(contents, static_cast<int>(Qt::AlignVCenter | Qt::AlignLeft), text());
}

void VLCheckBox::keyPressEvent(QKeyEvent* event) {
  if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
    QCheckBox::keyPressEvent(event);
  } else if (!event->isAutoRepeat()) {
    click();
  }
}

}  // namespace velor
