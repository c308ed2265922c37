// SPDX-License-Identifier: MIT
#pragma once

#include <QStyledItemDelegate>

namespace velor {

/// Draws the switches of a table: a knob that stands right in a filled slot, or left in an
/// empty one. A click anywhere in the cell turns it. Queue: main.
class VLSwitchDelegate final : public QStyledItemDelegate {
  Q_OBJECT

 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;
};

}  // namespace velor
