// SPDX-License-Identifier: MIT
#include "Velor/views/VLPopupButton.h"

#include <QAbstractItemView>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QToolTip>
#include <algorithm>

#include "Velor/views/VLStyle.h"

namespace velor {

void VLPopupButton::setChoices(const std::vector<Choice>& choices,
                               std::optional<std::int64_t> current) {
  const int before = count();
  for (int i = before - 1; i >= 0; --i) {
    const std::int64_t tag = itemData(i).toLongLong();
    if (std::ranges::none_of(choices, [tag](const Choice& each) { return each.tag == tag; })) {
      removeItem(i);
    }
  }
  for (int i = 0; i < static_cast<int>(choices.size()); ++i) {
    const auto& [title, tag] = choices[static_cast<std::size_t>(i)];
    const QVariant key = QVariant::fromValue<qlonglong>(tag);
    if (i >= count() || itemData(i) != key) {
      if (const int former = findData(key); former >= 0) {
        removeItem(former);
      }
      insertItem(i, title, key);
    } else if (itemText(i) != title) {
      setItemText(i, title);
    }
  }
  setCurrentIndex(current ? findData(QVariant::fromValue<qlonglong>(*current)) : -1);
  if (count() != before && view()->isVisible()) {
    showPopup();  // in its new size
  }
}

// Of the text that is cut; a tooltip of its own goes first.
bool VLPopupButton::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip && toolTip().isEmpty() && shownText() != currentText()) {
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), currentText(), this);
    return true;
  }
  return QComboBox::event(event);
}

QString VLPopupButton::shownText() const {
  QStyleOptionComboBox option;
  initStyleOption(&option);
  const QRect field =
      style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
  return fontMetrics().elidedText(currentIndex() < 0 ? placeholderText() : currentText(),
                                  Qt::ElideMiddle, field.width() - 2);
}

void VLPopupButton::paintEvent(QPaintEvent* /*event*/) {
  QStylePainter painter(this);
  QStyleOptionComboBox option;
  initStyleOption(&option);
  painter.drawComplexControl(QStyle::CC_ComboBox, option);
  option.currentText = shownText();
  painter.drawControl(QStyle::CE_ComboBoxLabel, option);
  if (hasFocus()) {
    painter.setRenderHint(QPainter::Antialiasing);
    VLStyle::drawFocus(painter, QRectF(rect()).adjusted(-1, -1, 1, 1), palette());
  }
}

void VLPopupButton::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    showPopup();
  } else {
    QComboBox::keyPressEvent(event);
  }
}

}  // namespace velor
