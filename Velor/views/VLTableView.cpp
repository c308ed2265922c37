// SPDX-License-Identifier: MIT
#include "Velor/views/VLTableView.h"

#include <QHeaderView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QPainter>

#include "Velor/views/VLEventModifiers.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLSwitchDelegate.h"
#include "Velor/views/VLTextDelegate.h"

namespace velor {
namespace {

constexpr int kSwitchWidth = 44;

}  // namespace

VLTableView::VLTableView(QWidget* parent) : QTableView(parent) {
  setItemDelegate(new VLTextDelegate(this));
  setSelectionBehavior(SelectRows);
  setSelectionMode(ExtendedSelection);
  setEditTriggers(DoubleClicked | EditKeyPressed);
  setTabKeyNavigation(false);
  setShowGrid(false);
  setWordWrap(false);
  setTextElideMode(Qt::ElideRight);
  setHorizontalScrollMode(ScrollPerPixel);
  verticalHeader()->hide();
  // Of one height, so that thousands of rows need no measuring.
  verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
  verticalHeader()->setDefaultSectionSize(VLStyle::kControlHeight);
  horizontalHeader()->setHighlightSections(false);
  horizontalHeader()->setSectionsMovable(false);
  horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void VLTableView::setEmptyText(const QString& text) {
  mEmptyText = text;
  viewport()->update();
}

void VLTableView::setSwitchColumn(int column) {
  setItemDelegateForColumn(column, new VLSwitchDelegate(this));
  horizontalHeader()->setMinimumSectionSize(VLStyle::kControlHeight);
  setColumnWidth(column, kSwitchWidth);
}

void VLTableView::setStretchColumn(int column) {
  horizontalHeader()->setStretchLastSection(false);
  horizontalHeader()->setSectionResizeMode(column, QHeaderView::Stretch);
}

bool VLTableView::viewportEvent(QEvent* event) {
  const VLEventModifiers held(*event);
  if (event->type() == QEvent::ToolTip) {
    const QModelIndex index = indexAt(static_cast<QHelpEvent*>(event)->pos());
    const bool isCut =
        index.isValid() && sizeHintForIndex(index).width() > columnWidth(index.column());
    if (!isCut) {
      return true;
    }
  }
  return QTableView::viewportEvent(event);
}

void VLTableView::paintEvent(QPaintEvent* event) {
  QTableView::paintEvent(event);
  QPainter painter(viewport());
  if (hasFocus()) {
    painter.setPen(QPen(VLStyle::focus(palette()), 2));
    painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
  }
  if (model() == nullptr || model()->rowCount() > 0) {
    return;
  }
  painter.setPen(VLStyle::secondaryText(palette()));
  const int edge = VLStyle::kEdge;
  painter.drawText(viewport()->rect().adjusted(edge, edge, -edge, -edge),
                   static_cast<int>(Qt::AlignTop | Qt::AlignLeft) | Qt::TextWordWrap, mEmptyText);
}

void VLTableView::actOn(const QModelIndex& index) {
  if ((model()->flags(index) & Qt::ItemIsUserCheckable) != 0) {
    const bool isOn = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    model()->setData(index, isOn ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
  } else if ((model()->flags(index) & Qt::ItemIsEditable) != 0) {
    edit(index);
  } else {
    emit activated(index);
  }
}

void VLTableView::keyPressEvent(QKeyEvent* event) {
  const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
  if (isReturn && state() != EditingState) {
    const QModelIndex index = currentIndex();
    if (index.isValid() && !event->isAutoRepeat()) {
      // The switch is the only thing to act on where nothing can be edited.
      const QModelIndex first = index.siblingAtColumn(0);
      const bool hasSwitch = (model()->flags(first) & Qt::ItemIsUserCheckable) != 0;
      actOn(hasSwitch ? first : index);
    }
    return;
  }
  if (event->matches(QKeySequence::SelectAll)) {
    QTableView::keyPressEvent(event);
    return;
  }
  const VLEventModifiers held(*event);
  QTableView::keyPressEvent(event);
}

// Control with an arrow selects as well as the arrow alone, so that the keyboard too can
// select with control held.
QItemSelectionModel::SelectionFlags VLTableView::selectionCommand(const QModelIndex& index,
                                                                  const QEvent* event) const {
  if (event != nullptr && event->type() == QEvent::KeyPress) {
    const auto* key = static_cast<const QKeyEvent*>(event);
    const bool isArrow = key->key() >= Qt::Key_Home && key->key() <= Qt::Key_PageDown;
    if (isArrow && key->modifiers().testFlag(Qt::ControlModifier) &&
        !key->modifiers().testFlag(Qt::ShiftModifier)) {
      return QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows;
    }
  }
  return QTableView::selectionCommand(index, event);
}

}  // namespace velor
