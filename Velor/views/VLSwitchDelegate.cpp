// SPDX-License-Identifier: MIT
#include "Velor/views/VLSwitchDelegate.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr QSizeF kSlot(26, 14);
constexpr qreal kKnobMargin = 3;

}  // namespace

void VLSwitchDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
  const QStyle* style = option.widget != nullptr ? option.widget->style() : QApplication::style();
  style->drawPrimitive(QStyle::PE_PanelItemViewItem, &option, painter, option.widget);
  const bool isOn = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
  const bool isSelected = option.state.testFlag(QStyle::State_Selected);
  const QPalette& palette = option.palette;
  const QColor ink = palette.color(isSelected ? QPalette::HighlightedText : QPalette::Text);
  const QColor ground = palette.color(isSelected ? QPalette::Highlight : QPalette::Base);
  const QColor on = isSelected ? ink : VLStyle::focus(palette);

  QRectF slot(QPointF(), kSlot);
  slot.moveCenter(QRectF(option.rect).center());
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  painter->setPen(QPen(isOn ? on : ink, 1.2));
  painter->setBrush(isOn ? QBrush(on) : QBrush(Qt::NoBrush));
  painter->drawRoundedRect(slot, slot.height() / 2, slot.height() / 2);
  const qreal side = slot.height() - 2 * kKnobMargin;
  QRectF knob(0, 0, side, side);
  knob.moveTop(slot.top() + kKnobMargin);
  knob.moveLeft(isOn ? slot.right() - kKnobMargin - side : slot.left() + kKnobMargin);
  painter->setPen(Qt::NoPen);
  painter->setBrush(isOn ? ground : ink);
  painter->drawEllipse(knob);
  painter->restore();
}

bool VLSwitchDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                   const QStyleOptionViewItem& /*option*/,
                                   const QModelIndex& index) {
  if (event->type() != QEvent::MouseButtonRelease ||
      static_cast<QMouseEvent*>(event)->button() != Qt::LeftButton) {
    return false;
  }
  const bool isOn = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
  return model->setData(index, isOn ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
}

}  // namespace velor
